# Install rules and Debian packages.
#
#   cmake --install build --prefix PREFIX   PREFIX/bin/sonarcat, PREFIX/lib/sonarcat/libZEL*.so,
#                                           PREFIX/share/sonarcat/schema/*.sql,
#                                           PREFIX/share/man/man1/sonarcat.1, PREFIX/share/doc/sonarcat/
#   cd build && cpack -G DEB                sonarcat_<version>_<arch>.deb (program, SQLite driver,
#                                           schemas, manual) and sonarcat-<driver>_<version>_<arch>.deb
#                                           for every other driver module this build has
#
# Every MODULE target of zel/ named ZEL<Driver> is a driver: it gets its own
# component and package without an edit here. The program finds the modules
# relative to its own directory, so any prefix works.
include(GNUInstallDirs)

set(SONARCAT_MODULE_INSTALL_DIR "lib/${PROJECT_NAME}")
file(RELATIVE_PATH SONARCAT_MODULE_DIR_FROM_BIN
     "/prefix/${CMAKE_INSTALL_BINDIR}" "/prefix/${SONARCAT_MODULE_INSTALL_DIR}")

# The main package carries the program and the SQLite driver; every other
# driver is the package <program>-<driver in lower case>.
set(SONARCAT_MAIN_COMPONENT program)
set(SONARCAT_MAIN_DRIVER ZELSQLite3)
get_property(zel_targets DIRECTORY ${PROJECT_SOURCE_DIR}/zel PROPERTY BUILDSYSTEM_TARGETS)
set(SONARCAT_DRIVER_COMPONENTS "")
set(SONARCAT_DRIVER_PACKAGE_ROWS "")
foreach(target IN LISTS zel_targets)
  get_target_property(type ${target} TYPE)
  if(NOT type STREQUAL "MODULE_LIBRARY" OR NOT target MATCHES "^ZEL(.+)$")
    continue()
  endif()
  string(TOLOWER "${CMAKE_MATCH_1}" driver)
  if(target STREQUAL SONARCAT_MAIN_DRIVER)
    set(component ${SONARCAT_MAIN_COMPONENT})
    set(package ${PROJECT_NAME})
  else()
    set(component ${driver})
    set(package ${PROJECT_NAME}-${driver})
    list(APPEND SONARCAT_DRIVER_COMPONENTS ${component})
    set(SONARCAT_DRIVER_OF_${component} ${CMAKE_MATCH_1})
  endif()
  install(TARGETS ${target} LIBRARY DESTINATION ${SONARCAT_MODULE_INSTALL_DIR} COMPONENT ${component})
  string(APPEND SONARCAT_DRIVER_PACKAGE_ROWS "    {L\"${target}\", L\"${package}\"},\n")
endforeach()

configure_file(${PROJECT_SOURCE_DIR}/media/InstallLayout.h.in ${PROJECT_BINARY_DIR}/generated/media/InstallLayout.h @ONLY)
target_include_directories(sonarcat PRIVATE ${PROJECT_BINARY_DIR}/generated)

install(TARGETS sonarcat RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${SONARCAT_MAIN_COMPONENT})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/schema/ DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME}/schema
        COMPONENT ${SONARCAT_MAIN_COMPONENT} FILES_MATCHING PATTERN "*.sql")
install(FILES ${PROJECT_SOURCE_DIR}/doc/sonarcat.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${SONARCAT_MAIN_COMPONENT})
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT ${SONARCAT_MAIN_COMPONENT})

# Debian packages, one per component. dpkg-shlibdeps (dpkg-dev) computes each
# package's dependencies from its binaries; the MediaInfo library is loaded
# with dlopen, which no binary shows, so the main package names it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "sonarcat maintainers")
set(CPACK_PACKAGE_CONTACT "sonarcat-maintainers@lists.example.org")
set(CPACK_COMPONENTS_ALL ${SONARCAT_MAIN_COMPONENT} ${SONARCAT_DRIVER_COMPONENTS})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "libmediainfo0v5, libtag1v5")
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "collects mp3 tags into an SQL database
Reads the ID3v1, ID3v2 and APE tags and the MediaInfo facts of MP3 files and stores them in a catalogue. \
Includes the SQLite driver and the tables for every database.")
foreach(component IN LISTS SONARCAT_DRIVER_COMPONENTS)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_COMPONENT_${COMPONENT}_DEPENDS ${SONARCAT_MAIN_COMPONENT})
  set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION
      "${SONARCAT_DRIVER_OF_${component}} driver for sonarcat
Lets sonarcat store its catalogue through the ${SONARCAT_DRIVER_OF_${component}} client library.")
endforeach()
include(CPack)
