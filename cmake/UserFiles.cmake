# install_user_files(PROGRAM): installs docs/man/PROGRAM.1, compressed, and the current directory's PROGRAM.bash, with
# which bash completes the program's command line.
function(install_user_files program)
    find_program(GZIP_PROGRAM gzip REQUIRED)
    set(page ${PROJECT_SOURCE_DIR}/docs/man/${program}.1)
    set(copy ${CMAKE_CURRENT_BINARY_DIR}/${program}.1)
    set(compressed ${copy}.gz)
    add_custom_command(OUTPUT ${compressed}
        COMMAND ${CMAKE_COMMAND} -E copy ${page} ${copy}
        COMMAND ${GZIP_PROGRAM} -9nf ${copy}
        DEPENDS ${page}
        COMMENT "Compressing ${program}.1"
        VERBATIM)
    add_custom_target(${program}_man_page ALL DEPENDS ${compressed})
    install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${FRONTPANELHW_TOOLS_COMPONENT})
    install(FILES ${program}.bash RENAME ${program}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${FRONTPANELHW_TOOLS_COMPONENT})
endfunction()
