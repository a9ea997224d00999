# Turns a file into a C++ source that returns its bytes, so a program can
# carry the file without reading it at run time.
#   cmake -DINPUT=<file> -DOUTPUT=<.cpp> -DHEADER=<header to include>
#         -DNAMESPACE=<ns> -DFUNCTION=<name> -P EmbedFile.cmake
# The function is `std::string_view FUNCTION() noexcept` in NAMESPACE.
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
# Sixteen bytes a line keep the generated file readable for compilers and people.
string(REGEX REPLACE "(('[^']*',){16})" "\\1\n" bytes "${bytes}")
get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp"
"// Generated from ${name} by cmake/EmbedFile.cmake at build time: do not edit.
#include \"${HEADER}\"

namespace ${NAMESPACE} {

namespace {
const char bytes[] = {
${bytes}'\\0'};
}  // namespace

std::string_view ${FUNCTION}() noexcept { return {bytes, ${size}}; }

}  // namespace ${NAMESPACE}
")
# Rewritten only when it changed, so an unchanged page compiles nothing.
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
