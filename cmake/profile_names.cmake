# Renames the trainee's counts in PROFILE_DIR to the module's object files.
file(GLOB counts "${PROFILE_DIR}/*next_steps_trainee.dir*.gcda")
if(NOT counts)
  message(FATAL_ERROR "the training left no counts in ${PROFILE_DIR}")
endif()
foreach(count IN LISTS counts)
  string(REPLACE "next_steps_trainee.dir" "next_steps.dir" renamed "${count}")
  file(RENAME "${count}" "${renamed}")
endforeach()
