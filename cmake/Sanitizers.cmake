# Sanitizers have to be in every object that ends up in one process, so they are set for the whole build.
if(FRONTPANELHW_SANITIZE)
    add_compile_options(-fsanitize=${FRONTPANELHW_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${FRONTPANELHW_SANITIZE})
    if(FRONTPANELHW_FUZZERS)
        # What the inputs reach is counted everywhere; libFuzzer's main comes with the fuzz targets only.
        add_compile_options(-fsanitize=fuzzer-no-link)
    endif()
elseif(PROJECT_IS_TOP_LEVEL)
    # Libraries name all that they need. Not with a sanitizer: its runtime may be in the program only.
    add_link_options(LINKER:--no-undefined)
endif()

# frontpanelhw_runs_often(target): sanitizers and no optimization make code slow; this has it optimized a little, where
# tests run it many million times. The rest compiles faster without.
function(frontpanelhw_runs_often target)
    if(FRONTPANELHW_SANITIZE)
        target_compile_options(${target} PRIVATE -O2)
    endif()
endfunction()
