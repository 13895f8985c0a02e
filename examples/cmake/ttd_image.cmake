# ttd_image(NAME INPUT file KEY private PUBLIC_KEY public
#           [DIGEST sha256] [BLOCK_SIZE 4096] [SIGNATURE eddsa-25519]
#           [SALT hex] [ROLLBACK version] [PARTITION bytes])
# A target NAME, part of `all`, that makes NAME.ttd in the build folder from INPUT and verifies it.
# It is made again when the input or a key changes.
find_program(MKTFS mktfs REQUIRED)

function(ttd_image name)
    cmake_parse_arguments(arg "" "INPUT;KEY;PUBLIC_KEY;DIGEST;BLOCK_SIZE;SIGNATURE;SALT;ROLLBACK;PARTITION" ""
                          ${ARGN})
    foreach(needed INPUT KEY PUBLIC_KEY)
        if(NOT arg_${needed})
            message(FATAL_ERROR "ttd_image(${name}): ${needed} is missing")
        endif()
        get_filename_component(arg_${needed} "${arg_${needed}}" ABSOLUTE)
    endforeach()
    set(options)
    foreach(pair "H;DIGEST;sha256" "B;BLOCK_SIZE;4096" "S;SIGNATURE;eddsa-25519" "A;SALT;" "R;ROLLBACK;"
                 "P;PARTITION;")
        list(GET pair 0 letter)
        list(GET pair 1 word)
        list(GET pair 2 value)
        if(arg_${word})
            set(value "${arg_${word}}")
        endif()
        if(NOT value STREQUAL "")
            list(APPEND options -${letter} "${value}")
        endif()
    endforeach()

    # Verified before it gets its name.
    set(image "${CMAKE_CURRENT_BINARY_DIR}/${name}.ttd")
    add_custom_command(
        OUTPUT "${image}"
        COMMAND "${MKTFS}" ttd ${options} -K "${arg_KEY}" -o "${image}.new" "${arg_INPUT}"
        COMMAND "${MKTFS}" ttd -y -K "${arg_PUBLIC_KEY}" "${image}.new"
        COMMAND "${CMAKE_COMMAND}" -E rename "${image}.new" "${image}"
        DEPENDS "${arg_INPUT}" "${arg_KEY}" "${arg_PUBLIC_KEY}"
        COMMENT "Wrapping ${name}.ttd"
        VERBATIM)
    add_custom_target(${name} ALL DEPENDS "${image}")
endfunction()
