include(CMakePackageConfigHelpers)
set(CORVANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Corvane)
install(TARGETS corvane EXPORT CorvaneTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/corvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT CorvaneTargets NAMESPACE Corvane:: DESTINATION ${CORVANE_CMAKE_DIR})
configure_package_config_file(packaging/CorvaneConfig.cmake.in ${PROJECT_BINARY_DIR}/CorvaneConfig.cmake
                              INSTALL_DESTINATION ${CORVANE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CorvaneConfig.cmake ${PROJECT_BINARY_DIR}/CorvaneConfigVersion.cmake
        DESTINATION ${CORVANE_CMAKE_DIR})
file(RELATIVE_PATH CORVANE_PC_UP /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(packaging/corvane.pc.in ${PROJECT_BINARY_DIR}/corvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/corvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
