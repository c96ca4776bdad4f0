# What distributions build their packages with, against overrun buffers and stacks, formats that come from outside and
# overwritten tables of addresses. It is set for this directory and those below it: neither a project that adds this
# one nor one that uses the installed library gets any of it.
option(FRONTPANELHW_HARDENING "Compile and link as distributions harden their packages" ${PROJECT_IS_TOP_LEVEL})
if(NOT FRONTPANELHW_HARDENING)
    return()
endif()

include(CheckCXXCompilerFlag)
include(CheckPIESupported)

add_compile_options(-fstack-protector-strong -Wformat -Werror=format-security)
check_cxx_compiler_flag(-fstack-clash-protection FRONTPANELHW_STACK_CLASH_PROTECTION)
if(FRONTPANELHW_STACK_CLASH_PROTECTION)
    add_compile_options(-fstack-clash-protection)
endif()
if(NOT FRONTPANELHW_SANITIZE AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    # The sanitizers watch the functions that this replaces; without optimization it only gives a warning. Some
    # compilers define it themselves.
    add_compile_options(
        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
endif()

# All code is position-independent; this links programs as such, whatever the compiler's default.
check_pie_supported(LANGUAGES CXX)
add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
