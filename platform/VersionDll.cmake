# A library without code, whose version resource holds a version such as 1.6.1.1023.
#   brekka_version_dll(target version)
# It lands among the programs as "target.dll". On Windows the resource compiler makes it and RC must
# be an enabled language; elsewhere a small program of ours writes the same record.
set(BREKKA_VERSION_DLL_FOLDER ${CMAKE_CURRENT_LIST_DIR})

function(brekka_version_dll target version)
    set(numbers ${version}.0.0.0)
    string(REGEX MATCH "^[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+" numbers ${numbers})
    if(WIN32)
        string(REPLACE "." "," version_numbers ${numbers})
        configure_file(${BREKKA_VERSION_DLL_FOLDER}/version.rc.in ${target}.rc @ONLY)
        add_library(${target} SHARED ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
        set_target_properties(${target} PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
        if(MSVC)
            target_link_options(${target} PRIVATE /NOENTRY)
        endif()
    else()
        set(file ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${target}.dll)
        add_custom_command(OUTPUT ${file}
            COMMAND make_version_dll ${file} ${numbers} DEPENDS make_version_dll VERBATIM)
        add_custom_target(${target} ALL DEPENDS ${file})
    endif()
endfunction()
