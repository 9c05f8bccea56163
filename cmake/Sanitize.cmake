# Sanitizers for everything that is built. What its tests run with stands in CMakePresets.json.
set(OIS_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
if(OIS_SANITIZE)
  add_compile_options(-fsanitize=${OIS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OIS_SANITIZE})
endif()
