# frontpanelhw_warnings(target): the warnings that every target of this project is free of, with g++ and clang++.
function(frontpanelhw_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(FRONTPANELHW_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
