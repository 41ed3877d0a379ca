# The library for signatures, as the target Sodium::Sodium. Where it is cross-built it is static.
find_path(SODIUM_INCLUDE_DIR sodium.h)
find_library(SODIUM_LIBRARY NAMES sodium libsodium)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Sodium REQUIRED_VARS SODIUM_LIBRARY SODIUM_INCLUDE_DIR)
if(Sodium_FOUND AND NOT TARGET Sodium::Sodium)
    add_library(Sodium::Sodium UNKNOWN IMPORTED)
    set_target_properties(Sodium::Sodium PROPERTIES
        IMPORTED_LOCATION "${SODIUM_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${SODIUM_INCLUDE_DIR}")
    if(WIN32)
        target_compile_definitions(Sodium::Sodium INTERFACE SODIUM_STATIC)
    endif()
endif()
mark_as_advanced(SODIUM_INCLUDE_DIR SODIUM_LIBRARY)
