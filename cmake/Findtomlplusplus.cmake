# Header-only, so that the phone and the tool need no further library at run time.
include(${CMAKE_CURRENT_LIST_DIR}/HeaderLibrary.cmake)
if(NOT TARGET tomlplusplus::tomlplusplus)
  ois_header_library(tomlplusplus::tomlplusplus toml++ toml.h)
endif()
set(tomlplusplus_FOUND TRUE)
