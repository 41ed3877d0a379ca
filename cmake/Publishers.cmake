# Whose manifests the program takes. A slip here would trust too much in silence, or lock players out.

set(BREKKA_PUBLIC_KEYS "" CACHE STRING
    "Publishers' public keys in Base64, divided by commas; without any, signatures are not checked")
string(REPLACE "," ";" keys "${BREKKA_PUBLIC_KEYS}")
# To CMake a semicolon divides words, too, to the program it does not.
if(BREKKA_PUBLIC_KEYS MATCHES ";")
    message(FATAL_ERROR "BREKKA_PUBLIC_KEYS: keys are divided by commas")
endif()
foreach(key IN LISTS keys)
    # 32 bytes, of which the last character holds four bits.
    string(REGEX MATCH "^[A-Za-z0-9+/]*[AEIMQUYcgkosw048]=$" match "${key}")
    string(LENGTH "${match}" length)
    if(NOT length EQUAL 44)
        message(FATAL_ERROR "BREKKA_PUBLIC_KEYS: \"${key}\" is no public key as brekka-publish prints it")
    endif()
endforeach()
set(BREKKA_LOWEST_SERIAL 0 CACHE STRING
    "Serial of the manifest on offer; a program that has seen none accepts none with a lower one")
# Milliseconds, or a time still to come, would lock newcomers out.
string(TIMESTAMP now "%s" UTC)
if(NOT BREKKA_LOWEST_SERIAL MATCHES "^(0|[1-9][0-9]*)$" OR BREKKA_LOWEST_SERIAL GREATER now)
    message(FATAL_ERROR "BREKKA_LOWEST_SERIAL: \"${BREKKA_LOWEST_SERIAL}\" is not the serial of a "
        "published manifest, in whole seconds since 1970")
endif()
