# Run as a command of the build (cmake -P): builds the trainee, runs the
# training, and writes BINARY_DIR/profile.rsp, the options by which the module
# is compiled: the profile's if every step succeeded, none if one failed (a
# fatal error instead where REQUIRED, so that this repository's own builds
# cannot lose the profile unseen).  Each step's output goes to trainee.log.
#
#   SOURCE_DIR, BINARY_DIR  the module's project and build folder
#   GENERATOR, PYTHON       the build's generator and interpreter
set(trainee_build ${BINARY_DIR}/trainee-build)
set(trainee_root ${BINARY_DIR}/trainee)
set(profile_dir ${BINARY_DIR}/profile)
set(log ${BINARY_DIR}/trainee.log)
file(REMOVE_RECURSE ${profile_dir} ${trainee_root})
file(WRITE ${log} "")

# Runs a step unless one failed before; `failed` names the first that failed.
function(step what)
  if(failed)
    return()
  endif()
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  file(APPEND ${log} "${output}")
  if(NOT result EQUAL 0)
    set(failed "${what}" PARENT_SCOPE)
  endif()
endfunction()

step(build ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${trainee_build} -G ${GENERATOR} -C ${BINARY_DIR}/trainee-cache.cmake
     -DNEXT_STEPS_PROFILE=OFF -DCMAKE_LIBRARY_OUTPUT_DIRECTORY=${trainee_root}/velquorn/tool_handlers)
step(build ${CMAKE_COMMAND} --build ${trainee_build} --target next_steps)
step(run ${CMAKE_COMMAND} -E copy_directory ${SOURCE_DIR}/standins/velquorn ${trainee_root}/velquorn)
step(run ${CMAKE_COMMAND} -E env PYTHONPATH=${trainee_root} PYTHONHASHSEED=0 PYTHONDONTWRITEBYTECODE=1
     ${PYTHON} ${SOURCE_DIR}/bench/train.py)

# The counts are named after the trainee's object files; the module's own
# compile looks for them under its own names.
file(GLOB counts ${profile_dir}/*.gcda)
if(NOT failed AND NOT counts)
  set(failed "leave counts")
endif()
string(REPLACE "/" "#" trainee_objects "${trainee_build}/CMakeFiles/")
string(REPLACE "/" "#" module_objects "${BINARY_DIR}/CMakeFiles/")
foreach(count IN LISTS counts)
  string(REPLACE "${trainee_objects}" "${module_objects}" renamed "${count}")
  file(RENAME ${count} ${renamed})
endforeach()

if(failed)
  set(options "")
  set(said "next_steps: built without the profile: the trainee failed to ${failed} (see ${log})")
  if(REQUIRED)
    file(READ ${log} output)
    message(FATAL_ERROR "${output}\n${said}")
  endif()
  message(NOTICE "${said}")
else()
  # Code that the training does not reach stays optimized for speed, not size.
  set(options "-fprofile-use=${profile_dir} -fprofile-partial-training -Wno-missing-profile")
endif()
# Written only when it changes, so that the module is not compiled again for nothing.
set(before "none yet")
if(EXISTS ${BINARY_DIR}/profile.rsp)
  file(READ ${BINARY_DIR}/profile.rsp before)
endif()
if(NOT before STREQUAL options)
  file(WRITE ${BINARY_DIR}/profile.rsp "${options}")
endif()
