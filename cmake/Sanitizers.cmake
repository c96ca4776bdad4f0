# Sanitizers have to be in every object that ends up in one process, so they are set for the whole build.
if(FRONTPANELHW_SANITIZE)
    add_compile_options(-fsanitize=${FRONTPANELHW_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${FRONTPANELHW_SANITIZE})
elseif(PROJECT_IS_TOP_LEVEL)
    # Libraries name all that they need. Not with a sanitizer: its runtime may be in the program only.
    add_link_options(LINKER:--no-undefined)
endif()
