# Installs the build tree into a scratch prefix, then configures, builds and
# runs the consumer project against it.
#   cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... -P InstallAndConsume.cmake
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/package/consumer
  -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix
  -DCMAKE_CXX_COMPILER=${CXX_COMPILER} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
  "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "building the consumer failed")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "the consumer failed")
endif()
