# Writes a C++ file with the bytes of a page's files: cmake -D FOLDER=... -D OUTPUT=... -P EmbedFiles.cmake
file(GLOB files RELATIVE ${FOLDER} ${FOLDER}/*)
set(types html text/html css text/css js text/javascript svg image/svg+xml webmanifest application/manifest+json)
set(arrays "")
set(table "")
foreach(name ${files})
    get_filename_component(ending ${name} LAST_EXT)
    string(SUBSTRING ${ending} 1 -1 ending)
    list(FIND types ${ending} at)
    if(at EQUAL -1)
        message(FATAL_ERROR "${name}: files of this kind are not served; add their type to EmbedFiles.cmake")
    endif()
    math(EXPR at "${at} + 1")
    list(GET types ${at} type)
    file(READ ${FOLDER}/${name} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
    string(MAKE_C_IDENTIFIER ${name} id)
    string(APPEND arrays "constexpr char ${id}[] = {${bytes}};\n")
    set(path /${name})
    if(name STREQUAL index.html)
        set(path /)
    endif()
    string(APPEND table "    {\"${path}\", \"${type}\", {${id}, sizeof ${id}}},\n")
endforeach()
file(WRITE ${OUTPUT} "// Made from ${FOLDER}.
#include \"tools/kovcam/live/WebFiles.h\"

namespace kov::live {
namespace {
${arrays}}
const std::vector<WebFile>& webFiles() {
    static const std::vector<WebFile> files = {
${table}    };
    return files;
}
}
")
