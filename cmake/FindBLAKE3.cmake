# The BLAKE3 reference library in C.  A system libblake3 is taken when there is
# one; otherwise the reference sources that the packaged Rust crate carries
# (with their assembly on x86-64) are compiled into a static library.
#
# BLAKE3::BLAKE3 is the target; its definition BLAKE3_HAS_HASH_MANY=1 says that
# the internal many-inputs kernel of the reference (blake3_impl.h) is reachable.
include(FindPackageHandleStandardArgs)

find_path(BLAKE3_INCLUDE_DIR blake3.h)
find_library(BLAKE3_LIBRARY blake3)
if(BLAKE3_INCLUDE_DIR AND BLAKE3_LIBRARY)
    find_package_handle_standard_args(BLAKE3 REQUIRED_VARS BLAKE3_LIBRARY BLAKE3_INCLUDE_DIR)
    if(NOT TARGET BLAKE3::BLAKE3)
        add_library(BLAKE3::BLAKE3 UNKNOWN IMPORTED)
        set_target_properties(BLAKE3::BLAKE3 PROPERTIES IMPORTED_LOCATION ${BLAKE3_LIBRARY})
        target_include_directories(BLAKE3::BLAKE3 SYSTEM INTERFACE ${BLAKE3_INCLUDE_DIR})
    endif()
    return()
endif()

file(GLOB blake3_candidates /usr/share/cargo/registry/blake3-*/c)
list(SORT blake3_candidates COMPARE NATURAL ORDER DESCENDING)
find_path(BLAKE3_SOURCE_DIR blake3_impl.h PATHS ${blake3_candidates} NO_DEFAULT_PATH)
find_package_handle_standard_args(BLAKE3 REQUIRED_VARS BLAKE3_SOURCE_DIR)
if(BLAKE3_FOUND AND NOT TARGET BLAKE3::BLAKE3)
    set(blake3_files blake3.c blake3_dispatch.c blake3_portable.c)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        enable_language(ASM)
        foreach(level sse2 sse41 avx2 avx512)
            list(APPEND blake3_files blake3_${level}_x86-64_unix.S)
        endforeach()
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
        list(APPEND blake3_files blake3_neon.c)
    endif()
    list(TRANSFORM blake3_files PREPEND ${BLAKE3_SOURCE_DIR}/)
    add_library(blake3_reference STATIC ${blake3_files})
    set_target_properties(blake3_reference PROPERTIES POSITION_INDEPENDENT_CODE ON)
    # Not our code: no warnings, no sanitizers, always optimised.
    target_compile_options(blake3_reference PRIVATE -w $<$<COMPILE_LANGUAGE:C>:-O2;-fno-sanitize=all>)
    target_include_directories(blake3_reference SYSTEM PUBLIC $<BUILD_INTERFACE:${BLAKE3_SOURCE_DIR}>)
    target_compile_definitions(blake3_reference PUBLIC BLAKE3_HAS_HASH_MANY=1)
    add_library(BLAKE3::BLAKE3 ALIAS blake3_reference)
endif()
