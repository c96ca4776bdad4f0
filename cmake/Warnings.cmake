# frontpanelhw_warnings(target): the warnings that every target of this project is free of, with g++ and clang++.
function(frontpanelhw_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(FRONTPANELHW_UNITY)
        # Sources that are compiled together look to g++ like headers, whose fixtures should not be in a namespace of
        # their own.
        target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endif()
    if(FRONTPANELHW_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
