# What pages of the legacy transcoder read from its working folder: "changelog.txt" and
# "Chart.min.js". Both stand beside the program, where it is built and where it is installed.

# From the Debian package libjs-chart.js.
set(OSTRAND_CHART_SCRIPT /usr/share/javascript/chart.js/Chart.min.js CACHE FILEPATH
    "The chart library that the page /chart.js hands out")

function(ostrand_install_with_page_files PROGRAM)
    configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_BINARY_DIR}/changelog.txt COPYONLY)
    if(EXISTS ${OSTRAND_CHART_SCRIPT})
        configure_file(${OSTRAND_CHART_SCRIPT} ${PROJECT_BINARY_DIR}/Chart.min.js COPYONLY)
    else()
        file(REMOVE ${PROJECT_BINARY_DIR}/Chart.min.js)
        message(WARNING "No chart library at ${OSTRAND_CHART_SCRIPT} (package libjs-chart.js): "
                "the page /chart.js will be empty. Everything else works.")
    endif()
    # One folder, which can serve as the working folder.
    install(TARGETS ${PROGRAM} DESTINATION .)
    foreach(link IN LISTS ARGN)
        install(FILES ${PROJECT_BINARY_DIR}/${link} DESTINATION .)
    endforeach()
    install(FILES ${PROJECT_BINARY_DIR}/changelog.txt DESTINATION .)
    install(FILES ${PROJECT_BINARY_DIR}/Chart.min.js DESTINATION . OPTIONAL)
endfunction()
