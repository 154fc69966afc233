# Sanitizer and coverage instrumentation applied to the whole build tree.
if(PAM_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(PAM_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT PAM_SANITIZE STREQUAL "")
  message(FATAL_ERROR "Unknown PAM_SANITIZE value '${PAM_SANITIZE}'")
endif()

# Coverage instrumentation (the 'coverage' preset; read by scripts/coverage.sh).
if(PAM_COVERAGE)
  add_compile_options(--coverage -fno-inline)
  add_link_options(--coverage)
endif()
