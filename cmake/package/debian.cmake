# Run by CPack between installing into its folder, which holds one folder a package, and
# packing: what only Debian packages want.
foreach(package ${CPACK_COMPONENTS_ALL})
    set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${package}${CPACK_PACKAGING_INSTALL_PREFIX})
    set(doc ${root}/share/doc/${package})
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CPACK_MKTFS_CHANGELOG} DESTINATION ${doc}
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    # Debian's own folder for completions of zsh.
    if(EXISTS ${root}/share/zsh/site-functions)
        file(RENAME ${root}/share/zsh/site-functions ${root}/share/zsh/vendor-completions)
    endif()

    file(GLOB compressed ${root}/share/man/man[1-8]/*.[1-8])
    execute_process(COMMAND gzip -9nf ${compressed} ${doc}/changelog COMMAND_ERROR_IS_FATAL ANY)
    file(GLOB_RECURSE archives ${root}/lib/*.a)
    if(archives)
        execute_process(COMMAND strip --strip-debug --enable-deterministic-archives ${archives}
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
# The same sources give the same packages.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -exec touch -hd @$ENV{SOURCE_DATE_EPOCH} {} +
                    COMMAND_ERROR_IS_FATAL ANY)
endif()
