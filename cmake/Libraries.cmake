# LMDB, without which there is no catalogue, and libidn2, libpsl and hiredis, without which the list programs and the
# catalogue do less. For 32 bits they are packages of i386, which many systems lack: what needs them is left out then.
# Headers are the same for both.
set(KATD_LIBRARIES_32 "" CACHE PATH "Folder of 32-bit libraries, searched before the system's")
if(KATD_32BIT)
    set(katd_library_places PATHS "${KATD_LIBRARIES_32}" /usr/lib/i386-linux-gnu /usr/lib32 NO_DEFAULT_PATH)
else()
    set(katd_library_places)
endif()

# Finds a header and a library into KATD_<NAME>_INCLUDE_DIR and KATD_<NAME>_LIBRARY, and sets KATD_HAVE_<NAME>.
function(katd_find_library name header library package what)
    find_path(KATD_${name}_INCLUDE_DIR ${header})
    find_library(KATD_${name}_LIBRARY ${library} ${katd_library_places})
    if(KATD_${name}_INCLUDE_DIR AND KATD_${name}_LIBRARY)
        set(KATD_HAVE_${name} ON PARENT_SCOPE)
        return()
    endif()
    set(KATD_HAVE_${name} OFF PARENT_SCOPE)
    if(NOT KATD_32BIT)
        message(FATAL_ERROR "${package} is missing, which is needed for: ${what}.")
    endif()
    message(STATUS "Left out: ${what} (needs the Debian package ${package}:i386)")
endfunction()

# Links a library that was found; the definition KATD_HAVE_<NAME> tells the source.
function(katd_link_library target name)
    if(KATD_HAVE_${name})
        target_compile_definitions(${target} PRIVATE KATD_HAVE_${name})
        target_include_directories(${target} SYSTEM PRIVATE "${KATD_${name}_INCLUDE_DIR}")
        target_link_libraries(${target} PRIVATE "${KATD_${name}_LIBRARY}")
    endif()
endfunction()

katd_find_library(LMDB lmdb.h lmdb liblmdb-dev "the catalogue engine and katcatalog")
set(KATD_HAVE_CATALOG ${KATD_HAVE_LMDB})
katd_find_library(IDN2 idn2.h idn2 libidn2-dev "host names that are not ASCII, which the programs then refuse")
katd_find_library(PSL libpsl.h psl libpsl-dev "public suffixes in katcatalog")
# Linked statically: katd then loads nothing for a shared store that is not set up.
katd_find_library(HIREDIS hiredis/hiredis.h libhiredis.a libhiredis-dev "a store that machines share")
