# Installation: headers, the libraries, a pkg-config file and a CMake package.
#
# The layout is PREFIX/include, PREFIX/lib (with lib/pkgconfig and
# lib/cmake/rzimg14n) and PREFIX/bin. Every installed file finds the others
# relative to itself: the libraries carry an $ORIGIN run path, the CMake
# package computes its prefix from its own location, and the pkg-config file
# is written at install time for the prefix actually installed to, so
# `cmake --install build --prefix P` works without reconfiguring.

include(CMakePackageConfigHelpers)

# GNUInstallDirs would choose lib64 or lib/<multiarch> on some systems; the
# documented layout is PREFIX/lib. A value given on the command line (its
# help string is then not GNUInstallDirs' own) is kept.
get_property(_rz_libdir_help CACHE CMAKE_INSTALL_LIBDIR PROPERTY HELPSTRING)
if(_rz_libdir_help MATCHES "^Object code libraries" AND NOT CMAKE_INSTALL_LIBDIR STREQUAL "lib")
  set_property(CACHE CMAKE_INSTALL_LIBDIR PROPERTY VALUE lib)
  set(CMAKE_INSTALL_LIBDIR lib)
endif()

set(RZ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/rzimg14n)
set(RZ_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(RZ_INSTALL_LIBS rzkrn14n rzdis14n rzimg14n)
set(RZ_INSTALL_HEADERS ${RZ_INCLUDE}/rzkrn.h ${RZ_INCLUDE}/rzdis.h ${RZ_INCLUDE}/rzimg.h ${RZ_INCLUDE}/rzimg_ops.h)
if(TARGET rzfil14n)
  list(APPEND RZ_INSTALL_LIBS rzfil14n)
  list(APPEND RZ_INSTALL_HEADERS ${RZ_INCLUDE}/rzfil.h)
  target_include_directories(rzfil14n PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endif()

# The libraries sit side by side; the tool one level down from them.
file(RELATIVE_PATH _rz_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(${RZ_INSTALL_LIBS} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${RZ_INSTALL_LIBS} EXPORT rzimg14nTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${RZ_INSTALL_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

if(TARGET rzimg)
  set_target_properties(rzimg PROPERTIES INSTALL_RPATH "$ORIGIN/${_rz_bin_to_lib}")
  install(TARGETS rzimg RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# CMake package: find_package(rzimg14n) gives rzimg14n::rzimg14n and friends.
install(EXPORT rzimg14nTargets NAMESPACE rzimg14n:: DESTINATION ${RZ_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/rzimg14nConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/rzimg14nConfig.cmake
                              INSTALL_DESTINATION ${RZ_CMAKE_DIR}
                              PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/rzimg14nConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rzimg14nConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/rzimg14nConfigVersion.cmake
        DESTINATION ${RZ_CMAKE_DIR})

# pkg-config: written when installing, from the prefix of that install.
set(RZ_PC_FILES rzimg14n)
if(TARGET rzfil14n)
  list(APPEND RZ_PC_FILES rzfil14n)
endif()
foreach(pc ${RZ_PC_FILES})
  set(_rz_pc_in ${CMAKE_CURRENT_LIST_DIR}/${pc}.pc.in)
  set(_rz_pc_out ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig/${pc}.pc)
  install(CODE "
    set(RZ_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
    set(RZ_PC_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
    set(RZ_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
    set(RZ_PC_VERSION \"${PROJECT_VERSION}\")
    foreach(v LIBDIR INCLUDEDIR)
      if(NOT IS_ABSOLUTE \"\${RZ_PC_\${v}}\")
        set(RZ_PC_\${v} \"\\\${prefix}/\${RZ_PC_\${v}}\")
      endif()
    endforeach()
    configure_file(\"${_rz_pc_in}\" \"${_rz_pc_out}\" @ONLY)")
  install(FILES ${_rz_pc_out} DESTINATION ${RZ_PKGCONFIG_DIR})
endforeach()
