# Header-only; found here so that a cross build finds it too.
include(${CMAKE_CURRENT_LIST_DIR}/HeaderLibrary.cmake)
if(NOT TARGET Eigen3::Eigen)
  ois_header_library(Eigen3::Eigen eigen3 unsupported/Eigen/FFT)
endif()
set(Eigen3_FOUND TRUE)
