# The module is built twice.  A trainee, with counters, finishes the bench's
# answers (bench/train.py) beside the stand-in siblings; the module is then
# compiled by what the counters saw.  Most of a small answer's time goes to
# fetching code, so laying the hot paths out together pays more than any
# change of the code itself.
set(trainee_root ${CMAKE_CURRENT_BINARY_DIR}/trainee)
set(profile_dir ${CMAKE_CURRENT_BINARY_DIR}/profile)

add_host_module(next_steps_trainee)
target_compile_options(next_steps_trainee PRIVATE -fprofile-generate=${profile_dir})
target_link_options(next_steps_trainee PRIVATE -fprofile-generate=${profile_dir})
set_target_properties(next_steps_trainee PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${trainee_root}/velquorn/tool_handlers)

# The counts are named after the trainee's object files; the module's own
# compile looks for them under its own names.
add_custom_command(
  OUTPUT ${profile_dir}/trained
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${profile_dir}
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${CMAKE_CURRENT_SOURCE_DIR}/standins/velquorn ${trainee_root}/velquorn
  COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=${trainee_root} PYTHONHASHSEED=0 PYTHONDONTWRITEBYTECODE=1
          ${Python_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/bench/train.py
  COMMAND ${CMAKE_COMMAND} -DPROFILE_DIR=${profile_dir} -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/profile_names.cmake
  COMMAND ${CMAKE_COMMAND} -E touch ${profile_dir}/trained
  DEPENDS next_steps_trainee ${CMAKE_CURRENT_SOURCE_DIR}/bench/train.py ${CMAKE_CURRENT_SOURCE_DIR}/bench/corpus.py
  COMMENT "Profiling the module on the bench's answers"
  VERBATIM)
add_custom_target(next_steps_profile DEPENDS ${profile_dir}/trained)
# The module's compile waits for the counts.  Only a change of its sources
# compiles it again: after a change of the training alone the counts are new
# but the module is not (a fresh build folder makes both).
add_dependencies(next_steps next_steps_profile)
# Code that the training does not run stays optimized for speed, not size.
# Warnings are errors in the trainee's compile of the same sources; here GCC
# also warns of counts it lacks for code the training did not reach.
target_compile_options(next_steps PRIVATE -fprofile-use=${profile_dir} -fprofile-partial-training -Wno-missing-profile
                                          -Wno-error)
