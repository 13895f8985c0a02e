# Run by CPack between installing into its folder and packing: what only a Debian
# package wants of it.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX})
set(doc ${root}/share/doc/mktfs)

file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog DESTINATION ${doc}
     FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
# Debian's own folder for completions of zsh.
if(EXISTS ${root}/share/zsh/site-functions)
    file(RENAME ${root}/share/zsh/site-functions ${root}/share/zsh/vendor-completions)
endif()

file(GLOB compressed ${root}/share/man/man[1-8]/*.[1-8])
execute_process(COMMAND gzip -9nf ${compressed} ${doc}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE archives ${root}/lib/*.a)
execute_process(COMMAND strip --strip-debug --enable-deterministic-archives ${archives}
                COMMAND_ERROR_IS_FATAL ANY)
