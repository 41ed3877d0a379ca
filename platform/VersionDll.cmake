# Version resources: of the programs, and of libraries without code that have nothing else.
function(brekka_four_numbers version result)
    string(REGEX MATCH "^[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+" numbers ${version}.0.0.0)
    set(${result} ${numbers} PARENT_SCOPE)
endfunction()

# Writes the resource script "target.rc" to the current binary folder.
function(brekka_version_script target version file_name file_type icon)
    brekka_four_numbers(${version} numbers)
    string(REPLACE "." "," version_numbers ${numbers})
    set(icon_line)
    if(icon)
        # The toolkit looks for this name, for the windows; the shell takes the first icon there is.
        set(icon_line "IDI_ICON1 ICON \"${icon}\"")
    endif()
    configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/version.rc.in ${target}.rc @ONLY)
endfunction()

# Gives a program the version of the project, and an icon if one follows. Only Windows has a place
# for them.
#   brekka_program_resource(target [icon])
function(brekka_program_resource target)
    if(NOT WIN32)
        return()
    endif()
    brekka_version_script(${target} ${PROJECT_VERSION} ${target}.exe VFT_APP "${ARGN}")
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
endfunction()

# A library without code, whose version resource holds a version such as 1.6.1.1023.
#   brekka_version_dll(target version)
# It lands among the programs as "target.dll". On Windows the resource compiler makes it and RC must
# be an enabled language; elsewhere a small program of ours writes the same record.
function(brekka_version_dll target version)
    if(WIN32)
        brekka_version_script(${target} ${version} ${target}.dll VFT_DLL "")
        add_library(${target} SHARED ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
        set_target_properties(${target} PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
        if(MSVC)
            target_link_options(${target} PRIVATE /NOENTRY)
        endif()
    else()
        brekka_four_numbers(${version} numbers)
        set(file ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${target}.dll)
        add_custom_command(OUTPUT ${file}
            COMMAND make_version_dll ${file} ${numbers} DEPENDS make_version_dll VERBATIM)
        add_custom_target(${target} ALL DEPENDS ${file})
    endif()
endfunction()
