# Headers, libraries, the CMake package (kaldb::kaldb, kaldb::kallib) and the pkg-config files.
include(CMakePackageConfigHelpers)

set(kaldb_installed kallib kaldb)
if(KALDB_BUILD_STATIC)
  list(APPEND kaldb_installed kallib_static kaldb_static)
endif()
install(TARGETS ${kaldb_installed} EXPORT kaldbTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/kaldb support/include/kallib DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(kaldb_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kaldb)
install(EXPORT kaldbTargets NAMESPACE kaldb:: DESTINATION ${kaldb_package_dir})
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/kaldbConfig.cmake
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/kaldbTargets.cmake\")\n")
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/kaldbConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kaldbConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kaldbConfigVersion.cmake
  DESTINATION ${kaldb_package_dir})

# Relative, so that an installed tree may be moved or installed with another prefix.
file(RELATIVE_PATH kaldb_pc_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" kaldb_pc_prefix "\${pcfiledir}/${kaldb_pc_prefix}")
foreach(package IN ITEMS kallib kaldb)
  configure_file(cmake/${package}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
