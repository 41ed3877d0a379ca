# What Windows wants to find inside of programs and libraries: versions, an icon, a manifest.

set(BREKKA_RESOURCES_FOLDER ${CMAKE_CURRENT_LIST_DIR})

function(brekka_four_numbers version result)
    string(REGEX MATCH "^[0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+" numbers ${version}.0.0.0)
    set(${result} ${numbers} PARENT_SCOPE)
endfunction()

# Writes the resource script "target.rc" to the current binary folder. The lines are further
# resources.
function(brekka_resource_script target version file_name file_type lines)
    brekka_four_numbers(${version} numbers)
    string(REPLACE "." "," version_numbers ${numbers})
    configure_file(${BREKKA_RESOURCES_FOLDER}/resources.rc.in ${target}.rc @ONLY)
endfunction()

# Gives a program the version of the project, a manifest, and an icon if one follows. Only Windows
# has a place for them.
#   brekka_program_resource(target [icon])
function(brekka_program_resource target)
    if(NOT WIN32)
        return()
    endif()
    set(lines "1 RT_MANIFEST \"${BREKKA_RESOURCES_FOLDER}/program.manifest\"")
    if(ARGN)
        # Qt looks for this name, for the windows; the shell takes the first icon there is.
        string(APPEND lines "\nIDI_ICON1 ICON \"${ARGN}\"")
    endif()
    brekka_resource_script(${target} ${PROJECT_VERSION} ${target}.exe VFT_APP "${lines}")
    set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${target}.rc PROPERTIES
        OBJECT_DEPENDS ${BREKKA_RESOURCES_FOLDER}/program.manifest)
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
endfunction()

# Puts a version such as 1.6.1.1023 into the file "target.dll" among the programs: on Windows as the
# version resource of a library without code, elsewhere as its one line.
#   brekka_version_dll(target version)
function(brekka_version_dll target version)
    if(NOT WIN32)
        brekka_four_numbers(${version} numbers)
        file(CONFIGURE OUTPUT ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${target}.dll CONTENT "${numbers}\n")
        return()
    endif()
    brekka_resource_script(${target} ${version} ${target}.dll VFT_DLL "")
    add_library(${target} SHARED ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
    set_target_properties(${target} PROPERTIES PREFIX "" LINKER_LANGUAGE CXX)
    if(MSVC)
        target_link_options(${target} PRIVATE /NOENTRY)
    endif()
endfunction()
