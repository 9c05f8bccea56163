# Header-only; found here so that a cross build finds it too.
include(${CMAKE_CURRENT_LIST_DIR}/HeaderLibrary.cmake)
if(NOT TARGET nlohmann_json::nlohmann_json)
  ois_header_library(nlohmann_json::nlohmann_json nlohmann json.hpp)
endif()
set(nlohmann_json_FOUND TRUE)
