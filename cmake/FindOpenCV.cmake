# OpenCV for the tests and benchmarks only (a peer to compare against).
# Debian installs OpenCVConfig.cmake only with libopencv-dev, which pulls in
# every module (GUI, video, VTK, ...); the core and imgproc development
# packages are all this project needs. So use OpenCV's own package file when
# there is one, and otherwise find the requested modules' headers and
# libraries directly. Sets OpenCV_FOUND, OpenCV_INCLUDE_DIRS, OpenCV_LIBS
# (imported targets opencv_<module>) and OpenCV_VERSION.
set(_rz_cv_components ${OpenCV_FIND_COMPONENTS})
if(NOT _rz_cv_components)
  set(_rz_cv_components core)
endif()

find_package(OpenCV CONFIG QUIET COMPONENTS ${_rz_cv_components})
if(OpenCV_FOUND)
  return()
endif()

find_path(OpenCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
if(OpenCV_INCLUDE_DIR AND EXISTS ${OpenCV_INCLUDE_DIR}/opencv2/core/version.hpp)
  file(STRINGS ${OpenCV_INCLUDE_DIR}/opencv2/core/version.hpp _rz_cv_version_lines
       REGEX "^#define CV_VERSION_(MAJOR|MINOR|REVISION) +[0-9]+")
  foreach(part MAJOR MINOR REVISION)
    string(REGEX REPLACE ".*CV_VERSION_${part} +([0-9]+).*" "\\1" OpenCV_VERSION_${part} "${_rz_cv_version_lines}")
  endforeach()
  set(OpenCV_VERSION ${OpenCV_VERSION_MAJOR}.${OpenCV_VERSION_MINOR}.${OpenCV_VERSION_REVISION})
endif()

set(OpenCV_LIBS)
foreach(comp ${_rz_cv_components})
  find_library(OpenCV_${comp}_LIBRARY opencv_${comp})
  set(OpenCV_${comp}_FOUND FALSE)
  if(OpenCV_${comp}_LIBRARY AND OpenCV_INCLUDE_DIR)
    set(OpenCV_${comp}_FOUND TRUE)
    if(NOT TARGET opencv_${comp})
      add_library(opencv_${comp} UNKNOWN IMPORTED)
      set_target_properties(opencv_${comp} PROPERTIES IMPORTED_LOCATION ${OpenCV_${comp}_LIBRARY}
                            INTERFACE_INCLUDE_DIRECTORIES ${OpenCV_INCLUDE_DIR})
    endif()
    list(APPEND OpenCV_LIBS opencv_${comp})
  endif()
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCV REQUIRED_VARS OpenCV_INCLUDE_DIR VERSION_VAR OpenCV_VERSION
                                  HANDLE_COMPONENTS)
if(OpenCV_FOUND)
  set(OpenCV_INCLUDE_DIRS ${OpenCV_INCLUDE_DIR})
endif()
mark_as_advanced(OpenCV_INCLUDE_DIR)
