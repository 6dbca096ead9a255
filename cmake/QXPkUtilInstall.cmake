# Installs the library, its headers and a CMake package so that consumers can write
# find_package(qxpkutil) and target_link_libraries(app qxpkutil::qxpkutil).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS qxpkutil EXPORT qxpkutilTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The command-line tool, when it is built.
if(TARGET qxpeak)
  install(TARGETS qxpeak RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET qxpeak-view)  # started by `qxpeak view`
  install(TARGETS qxpeak-view RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/qxpkutil/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qxpkutil
  FILES_MATCHING PATTERN "*.h"
  PATTERN "*_internal.h" EXCLUDE
  PATTERN "QXRangeRules.h" EXCLUDE
  PATTERN "io" EXCLUDE)
# The optional io component, when it was built: its own export set, so that the package
# needs pugixml and zlib only for users who ask for it.
if(TARGET qxpkutil_io)
  install(TARGETS qxpkutil_io EXPORT qxpkutilIoTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/qxpkutil/io/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qxpkutil/io
    FILES_MATCHING PATTERN "*.h"
    PATTERN "*_internal.h" EXCLUDE
    PATTERN "MzmlFixture.h" EXCLUDE)
  install(EXPORT qxpkutilIoTargets NAMESPACE qxpkutil:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qxpkutil)
endif()
install(EXPORT qxpkutilTargets NAMESPACE qxpkutil:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qxpkutil)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qxpkutilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qxpkutilConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qxpkutil)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qxpkutilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qxpkutilConfig.cmake ${PROJECT_BINARY_DIR}/qxpkutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qxpkutil)

# The consumer check: install into a scratch prefix, then configure, build and run a
# separate project that finds the package.
if(QXPKUTIL_BUILD_TESTS)
  # A sanitized library needs its runtime in the consumer's link too.
  set(consumer_flags "")
  if(QXPKUTIL_SANITIZE)
    set(consumer_flags "-fsanitize=address,undefined")
  endif()
  add_test(NAME consumer_find_package
    COMMAND ${CMAKE_COMMAND}
      -DBUILD_DIR=${PROJECT_BINARY_DIR}
      -DSOURCE_DIR=${PROJECT_SOURCE_DIR}/tests/consumer
      -DWORK_DIR=${PROJECT_BINARY_DIR}/consumer_check
      "-DCONSUMER_FLAGS=${consumer_flags}"
      -P ${PROJECT_SOURCE_DIR}/cmake/RunConsumerCheck.cmake)
endif()
