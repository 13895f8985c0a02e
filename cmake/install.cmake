# What `cmake --install` puts where, and the Debian packages (`cpack -G DEB`).
#
# A component is a package and has its name.  Everything finds its place relative to
# itself, so a prefix given at install time works.

# The folder of this machine kind, where Debian's own packages look.
if(CMAKE_LIBRARY_ARCHITECTURE)
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries, below the prefix")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(packages mktfs libttd0 libttd-dev)

# The programs, with their pages and completions.
install(TARGETS mktfs ttdinfo ttdsign RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT mktfs)
function(install_pages component section)
    list(TRANSFORM ARGN REPLACE ".+" "${PROJECT_SOURCE_DIR}/docs/man/\\0.${section}")
    install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
install_pages(mktfs 1 mktfs ttdinfo ttdsign)
install_pages(mktfs 5 mktfs-buildfile ttd-image)
set(completions ${PROJECT_SOURCE_DIR}/completions)
foreach(program mktfs ttdinfo ttdsign)
    if(NOT EXISTS ${completions}/${program}.bash)
        continue()
    endif()
    install(FILES ${completions}/${program}.bash RENAME ${program} COMPONENT mktfs
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${completions}/_${program} COMPONENT mktfs
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES ${completions}/${program}.fish COMPONENT mktfs
            DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()

# Documents and examples, in the places that they have in the tree, so that their links lead somewhere.
set(doc_folder ${CMAKE_INSTALL_DATADIR}/doc/mktfs)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md
              ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${doc_folder} COMPONENT mktfs)
install(
    DIRECTORY ${PROJECT_SOURCE_DIR}/docs
    DESTINATION ${doc_folder}
    COMPONENT mktfs
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.txt" PATTERN "man" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${doc_folder} USE_SOURCE_PERMISSIONS
        COMPONENT mktfs)

# The C library, and what programs that use it are built with: find_package(mktfs) gives the target
# mktfs::ttd, pkg-config knows it as libttd.
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/mktfs)
install(
    TARGETS ttd
    EXPORT mktfs-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libttd0 NAMELINK_COMPONENT libttd-dev
    INCLUDES
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/libttd.a DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libttd-dev)
install(FILES ${PROJECT_SOURCE_DIR}/include/ttd/reader.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ttd
        COMPONENT libttd-dev)
install_pages(libttd-dev 3 ttd_reader)
install(EXPORT mktfs-targets NAMESPACE mktfs:: DESTINATION ${package_folder} COMPONENT libttd-dev)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/package/mktfs-config.cmake.in ${PROJECT_BINARY_DIR}/mktfs-config.cmake
    INSTALL_DESTINATION ${package_folder} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mktfs-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/mktfs-config.cmake ${PROJECT_BINARY_DIR}/mktfs-config-version.cmake
        DESTINATION ${package_folder} COMPONENT libttd-dev)

set(pc_private "-lb2 -lcrypto -lstdc++ -lm -pthread") # libttd.a holds everything of ours
if(NOT TARGET blake3_reference)
    string(PREPEND pc_private "-lblake3 ")
endif()
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${CMAKE_CURRENT_LIST_DIR}/package/libttd.pc.in ${PROJECT_BINARY_DIR}/libttd.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libttd.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT libttd-dev)

# The nbdkit plugin, where nbdkit of the same prefix looks for it.
if(TARGET nbdkit_ttd_plugin)
    list(APPEND packages nbdkit-plugin-ttd)
    install(TARGETS nbdkit_ttd_plugin LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/nbdkit/plugins
                                              COMPONENT nbdkit-plugin-ttd)
    install_pages(nbdkit-plugin-ttd 1 nbdkit-ttd-plugin)
endif()

# The Debian packages.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mktfs)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_VENDOR "mktfs maintainers")
set(CPACK_PACKAGE_CONTACT "mktfs maintainers <mktfs@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL ${packages})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
# The date is that of SOURCE_DATE_EPOCH where it is set.
string(TIMESTAMP package_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/package/changelog.in ${PROJECT_BINARY_DIR}/changelog @ONLY)
set(CPACK_MKTFS_CHANGELOG ${PROJECT_BINARY_DIR}/changelog)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/package/debian.cmake)

# describe_package(NAME SECTION DEPENDS SUMMARY TEXT): DEPENDS beside the shared libraries.
macro(describe_package name section depends summary text)
    string(TOUPPER ${name} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
endmacro()
# Tells other packages what to depend on, and the loader that there is a new library.
file(WRITE ${PROJECT_BINARY_DIR}/shlibs "libttd 0 libttd0 (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBTTD0_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/shlibs ${PROJECT_BINARY_DIR}/triggers)
set(same_library "libttd0 (= ${PROJECT_VERSION})")
describe_package(mktfs admin "" "filesystem images that prove every block"
                 "mktfs wraps the image of a filesystem in a salted hash tree and a signed
superblock, so that its reader can prove every block. ttdinfo shows what a
superblock says, and ttdsign signs images that exist.")
describe_package(libttd0 libs "" "reader of images that prove every block"
                 "A C library that opens ttd images and hands out the bytes of the inner
image, each proven before.")
describe_package(libttd-dev libdevel "${same_library}" "reader of images that prove every block: headers"
                 "The header and the static library of libttd, for pkg-config and CMake.")
describe_package(nbdkit-plugin-ttd net "nbdkit, ${same_library}" "nbdkit plugin for images that prove every block"
                 "Serves the inner image of a ttd image, read-only, and proves every block
on the way.")
include(CPack)
