# What `cmake --install` puts where, and the Debian package (`cpack -G DEB`).
#
# Besides the programs this is the verification engine for readers: static libraries,
# their headers, a CMake package and a pkg-config file.  All of it finds its place
# relative to itself, so a prefix given at install time works.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(engine_libraries ttd_engine tcrypto tcrypto_openssl tcrypto_kernels tcrypto_core talg th)
set(engine_archives ${CMAKE_INSTALL_LIBDIR}/mktfs)
set(engine_headers ${CMAKE_INSTALL_INCLUDEDIR}/mktfs)
set(engine_package ${CMAKE_INSTALL_LIBDIR}/cmake/mktfs)
target_compile_features(th INTERFACE cxx_std_20)
target_compile_features(ttd_engine INTERFACE cxx_std_20)
if(TARGET blake3_reference)
    list(APPEND engine_libraries blake3_reference)
endif()

install(TARGETS mktfs ttdinfo ttdsign RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(
    TARGETS ${engine_libraries}
    EXPORT mktfs-targets
    ARCHIVE DESTINATION ${engine_archives}
    INCLUDES
    DESTINATION ${engine_headers})
# The interfaces; the other headers of these folders are internals.
set(public_th base error handle log slist str)
set(public_talg bitmap hash_table list lru_cache memalign slab)
set(public_tcrypto error provider tcrypto)
set(public_ttd bytes caches engine engine_log format geometry hash signature superblock verify verify_range)
foreach(folder th talg tcrypto ttd)
    set(headers ${public_${folder}})
    list(TRANSFORM headers REPLACE ".+" "${PROJECT_SOURCE_DIR}/lib/${folder}/\\0.h")
    install(FILES ${headers} DESTINATION ${engine_headers}/${folder})
endforeach()

# The CMake package: find_package(mktfs), target mktfs::ttd_engine.
install(EXPORT mktfs-targets NAMESPACE mktfs:: DESTINATION ${engine_package})
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/package/mktfs-config.cmake.in ${PROJECT_BINARY_DIR}/mktfs-config.cmake
    INSTALL_DESTINATION ${engine_package} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mktfs-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
    FILES ${PROJECT_BINARY_DIR}/mktfs-config.cmake ${PROJECT_BINARY_DIR}/mktfs-config-version.cmake
          ${CMAKE_CURRENT_LIST_DIR}/FindBLAKE2.cmake ${CMAKE_CURRENT_LIST_DIR}/FindBLAKE3.cmake
          ${CMAKE_CURRENT_LIST_DIR}/Findlibdivide.cmake
    DESTINATION ${engine_package})

# pkg-config: our archives in the order of their use, then what they need.
set(pc_archives "")
foreach(library ${engine_libraries})
    string(APPEND pc_archives " -l${library}")
endforeach()
set(pc_system "-lb2 -lcrypto -pthread")
if(NOT TARGET blake3_reference)
    string(PREPEND pc_system "-lblake3 ")
endif()
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
file(RELATIVE_PATH pc_archive_folder ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR}/mktfs)
file(RELATIVE_PATH pc_header_folder ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/mktfs)
configure_file(${CMAKE_CURRENT_LIST_DIR}/package/ttd-engine.pc.in ${PROJECT_BINARY_DIR}/ttd-engine.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ttd-engine.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Pages, documents, examples, completions.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        FILES_MATCHING PATTERN "*.1")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man5
        FILES_MATCHING PATTERN "*.5")
set(doc_folder ${CMAKE_INSTALL_DATADIR}/doc/mktfs)
# In the places that they have in the tree, so that their links lead somewhere.
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md DESTINATION ${doc_folder})
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/docs
    DESTINATION ${doc_folder}
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.txt" PATTERN "man" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${doc_folder} USE_SOURCE_PERMISSIONS)
set(completions ${PROJECT_SOURCE_DIR}/completions)
foreach(program mktfs ttdinfo)
    install(FILES ${completions}/${program}.bash RENAME ${program}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${completions}/_${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${completions}/${program}.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()

# The Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mktfs)
set(CPACK_PACKAGE_VENDOR "mktfs maintainers")
set(CPACK_PACKAGE_CONTACT "mktfs maintainers <mktfs@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libssl-dev, libb2-dev, libdivide-dev")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "filesystem images that prove every block")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "mktfs wraps the image of a filesystem in a salted hash tree and a signed
superblock, so that its reader can prove every block. ttdinfo shows what a
superblock says. The engine that verifies is included as static libraries,
for readers of such images.")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/package/debian.cmake)
include(CPack)
