# Sanitizers for everything that is built, and the settings its tests run with.
set(OIS_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
set(OIS_TEST_ENVIRONMENT "")
if(OIS_SANITIZE)
  add_compile_options(-fsanitize=${OIS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OIS_SANITIZE})
  # handle_ioctl checks the memory that each ioctl moves against the size in its request code.
  set(OIS_TEST_ENVIRONMENT
      ASAN_OPTIONS=handle_ioctl=1:halt_on_error=1:detect_stack_use_after_return=1:strict_string_checks=1
      UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
      LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0
      TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1)
endif()
