# Installs the build tree into a scratch prefix and checks what an agent's build and an operator
# get from it: the versioned libraries with their SONAMEs, the simulator (which must run from the
# installed tree), its manual page, the documentation, the CMake package and the pkg-config file.
# Then it builds examples/embedding against the installed tree twice, with find_package(UmoNat)
# and with pkg-config, runs both and compares their output with the example's expected output.
#   cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -DCXX_COMPILER=... -DCXX_FLAGS=...
#     -DLINKER_FLAGS=... -DCMAKE_INSTALL_<LIBDIR|BINDIR|MANDIR|DOCDIR|INCLUDEDIR>=... (the build's)
#     -P InstallAndConsume.cmake
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(rc)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
set(libdir ${prefix}/${CMAKE_INSTALL_LIBDIR})

# The installed tree.
foreach(path
    ${CMAKE_INSTALL_LIBDIR}/libUmoNat.so.0.1.0
    ${CMAKE_INSTALL_LIBDIR}/libumonat-platform.so.0.1.0
    ${CMAKE_INSTALL_LIBDIR}/cmake/UmoNat/UmoNatConfig.cmake
    ${CMAKE_INSTALL_LIBDIR}/pkgconfig/umonat.pc
    ${CMAKE_INSTALL_BINDIR}/umonat-sim
    ${CMAKE_INSTALL_MANDIR}/man1/umonat-sim.1
    ${CMAKE_INSTALL_INCLUDEDIR}/umonat/UmoNat/UmoNatFlowMcastHelper.h
    ${CMAKE_INSTALL_INCLUDEDIR}/umonat/platform/Mox/Ptr.h
    ${CMAKE_INSTALL_DOCDIR}/README.md
    ${CMAKE_INSTALL_DOCDIR}/scenario-language.md
    ${CMAKE_INSTALL_DOCDIR}/examples/tour.scn
    ${CMAKE_INSTALL_DOCDIR}/examples/embedding/main.cpp)
  if(NOT EXISTS ${prefix}/${path})
    message(FATAL_ERROR "not installed: ${path}")
  endif()
endforeach()
file(GLOB unversioned ${libdir}/libplatform*)
if(unversioned)
  message(FATAL_ERROR "a library with a generic name is installed: ${unversioned}")
endif()
foreach(lib UmoNat umonat-platform)
  run("reading the dynamic section of lib${lib}" objdump -p ${libdir}/lib${lib}.so.0.1.0)
  if(NOT run_output MATCHES "SONAME +lib${lib}\\.so\\.0\n")
    message(FATAL_ERROR "lib${lib} has no SONAME lib${lib}.so.0:\n${run_output}")
  endif()
endforeach()
file(READ ${prefix}/${CMAKE_INSTALL_MANDIR}/man1/umonat-sim.1 man)
if(NOT man MATCHES "^\\.TH UMONAT-SIM 1")
  message(FATAL_ERROR "the manual page does not begin with its title line")
endif()

# The simulator runs from the installed tree, on the libraries beside it.
run("the installed umonat-sim --version" ${prefix}/${CMAKE_INSTALL_BINDIR}/umonat-sim --version)
if(NOT run_output MATCHES "0\\.1\\.0")
  message(FATAL_ERROR "the installed umonat-sim gives another version:\n${run_output}")
endif()
run("the installed umonat-sim" ${prefix}/${CMAKE_INSTALL_BINDIR}/umonat-sim
  ${prefix}/${CMAKE_INSTALL_DOCDIR}/examples/tour.scn)
if(NOT run_output MATCHES "> start\n")
  message(FATAL_ERROR "the installed umonat-sim did not run the tour:\n${run_output}")
endif()

# The embedding example, built the CMake way.
set(example ${prefix}/${CMAKE_INSTALL_DOCDIR}/examples/embedding)
run("configuring the embedding example" ${CMAKE_COMMAND} -S ${example} -B ${WORK_DIR}/cmake-build
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
  "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}")
run("building the embedding example" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run("the embedding example" ${WORK_DIR}/cmake-build/embedding)
set(cmake_output "${run_output}")
file(READ ${SOURCE_DIR}/examples/embedding/expected-output.txt expected)
if(NOT cmake_output STREQUAL expected)
  file(WRITE ${WORK_DIR}/embedding-output.txt "${cmake_output}")
  message(FATAL_ERROR "the embedding example printed otherwise than examples/embedding/"
    "expected-output.txt (its output: ${WORK_DIR}/embedding-output.txt):\n${cmake_output}")
endif()

# The same example, built with the flags of the pkg-config file.
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
run("pkg-config" pkg-config --cflags --libs umonat)
string(STRIP "${run_output}" pkg_flags)
separate_arguments(pkg_flags UNIX_COMMAND "${pkg_flags}")
separate_arguments(extra_flags UNIX_COMMAND "${CXX_FLAGS}")
run("building the embedding example with pkg-config" ${CXX_COMPILER} ${extra_flags}
  ${example}/main.cpp ${pkg_flags} -Wl,-rpath,${libdir} -o ${WORK_DIR}/embedding-pkg-config)
run("the embedding example built with pkg-config" ${WORK_DIR}/embedding-pkg-config)
if(NOT run_output STREQUAL cmake_output)
  message(FATAL_ERROR "the two builds of the embedding example printed different output")
endif()
message(STATUS "installed tree, simulator, manual page, CMake package and pkg-config file checked")
