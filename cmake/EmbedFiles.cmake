# embed_files(TARGET HEADER FUNCTION FILE...): makes a static library of the bytes of the files, and of
#   std::string_view panelsim::FUNCTION(std::string_view name)
# which the header declares: it gives the bytes of the file of that name, and throws std::out_of_range when there is
# none. The files are those of the current source directory; their content may be anything, of any size.
#
# The same file is the script that writes the source.
function(embed_files target header function)
    set(output ${CMAKE_CURRENT_BINARY_DIR}/${function}.cpp)
    set(files)
    foreach(file IN LISTS ARGN)
        cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
        list(APPEND files ${file})
    endforeach()
    add_custom_command(OUTPUT ${output}
        COMMAND ${CMAKE_COMMAND} -DOUTPUT=${output} -DHEADER=${header} -DFUNCTION=${function} "-DFILES=${files}"
                -P ${CMAKE_CURRENT_FUNCTION_LIST_FILE}
        DEPENDS ${files} ${CMAKE_CURRENT_FUNCTION_LIST_FILE}
        COMMENT "Embedding files as ${function}"
        VERBATIM)
    add_library(${target} STATIC ${output})
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    set(arrays)
    set(rows)
    set(index 0)
    foreach(path IN LISTS FILES)
        cmake_path(GET path FILENAME name)
        file(SIZE ${path} size)
        file(READ ${path} bytes HEX)
        string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
        # The zero is for a file without any bytes: an array has at least one.
        string(APPEND arrays "const char bytes${index}[] = {${bytes}'\\0'};\n")
        string(APPEND rows "        {\"${name}\", {bytes${index}, ${size}}},\n")
        math(EXPR index "${index} + 1")
    endforeach()
    file(WRITE ${OUTPUT} "#include \"${HEADER}\"

#include <map>

namespace panelsim {

namespace {

${arrays}
} // namespace

std::string_view ${FUNCTION}(std::string_view name)
{
    static const std::map<std::string_view, std::string_view> files = {
${rows}    };
    return files.at(name);
}

} // namespace panelsim
")
endif()
