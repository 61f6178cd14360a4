# Writes OUTPUT, a C++ source defining Sim::defaultScenario() as the bytes of INPUT.
# Run as: cmake -DINPUT=<scenario> -DOUTPUT=<source> -P EmbedScenario.cmake
file(READ "${INPUT}" hex HEX)
# Twelve bytes to a line.
string(REPEAT "[0-9a-f]" 24 line)
string(REGEX REPLACE "(${line})" "\\1\n" hex "${hex}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
string(REPLACE "\n" "\n    " bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp" "// Generated from ${INPUT} by sim/EmbedScenario.cmake; do not edit.
#include \"sim/DefaultScenario.h\"

namespace Sim {

namespace {

constexpr char kScenario[] = {
    ${bytes}'\\0'};

}  // namespace

std::string_view defaultScenario() { return std::string_view(kScenario, sizeof kScenario - 1); }

}  // namespace Sim
")
# Only a changed text touches the source, so an unchanged scenario rebuilds nothing.
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
