# LMDB, without which there is no catalogue, and libidn2 and libpsl, without which it does less. For 32 bits they are
# multiarch packages of i386, which many systems lack: what needs them is left out then. Headers are the same for both.
find_path(LMDB_INCLUDE_DIR lmdb.h)
find_path(IDN2_INCLUDE_DIR idn2.h)
find_path(PSL_INCLUDE_DIR libpsl.h)
if(KATD_32BIT)
    set(katd_library_places PATHS /usr/lib/i386-linux-gnu /usr/lib32 NO_DEFAULT_PATH)
else()
    set(katd_library_places)
endif()
find_library(KATD_LMDB_LIBRARY lmdb ${katd_library_places})
find_library(KATD_IDN2_LIBRARY idn2 ${katd_library_places})
find_library(KATD_PSL_LIBRARY psl ${katd_library_places})

function(katd_catalog_needs result header library package what)
    if(header AND library)
        set(${result} ON PARENT_SCOPE)
        return()
    endif()
    set(${result} OFF PARENT_SCOPE)
    if(NOT KATD_32BIT)
        message(FATAL_ERROR "The catalogue needs a library: install the Debian package ${package}.")
    endif()
    message(STATUS "Left out: ${what} (needs the Debian package ${package}:i386)")
endfunction()

katd_catalog_needs(KATD_HAVE_CATALOG "${LMDB_INCLUDE_DIR}" "${KATD_LMDB_LIBRARY}" liblmdb-dev
    "the catalogue engine and katcatalog")
if(KATD_HAVE_CATALOG)
    katd_catalog_needs(KATD_HAVE_IDN2 "${IDN2_INCLUDE_DIR}" "${KATD_IDN2_LIBRARY}" libidn2-dev
        "internationalised names in the catalogue")
    katd_catalog_needs(KATD_HAVE_PSL "${PSL_INCLUDE_DIR}" "${KATD_PSL_LIBRARY}" libpsl-dev
        "public suffixes in katcatalog")
endif()
