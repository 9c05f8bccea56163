# Header-only; found here so that a cross build finds it too.
include(${CMAKE_CURRENT_LIST_DIR}/HeaderLibrary.cmake)
if(NOT TARGET CLI11::CLI11)
  ois_header_library(CLI11::CLI11 CLI CLI.hpp)
endif()
set(CLI11_FOUND TRUE)
