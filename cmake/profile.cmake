# The module is built twice.  A trainee, with counters, finishes the bench's
# answers (bench/train.py) beside the stand-in siblings; the module is then
# compiled by what the counters saw.  Most of a small answer's time goes to
# fetching code, so laying the hot paths out together pays more than any
# change of the code itself.
#
# The profile is an optimization, never a requirement: flags a user or a
# packager passes can keep the trainee from building or running (a sanitizer
# whose runtime is not preloaded, an interpreter that cannot load it), and the
# build must then go on without it.  A failed target would stop the build, so
# the trainee is not a target here: cmake/train.cmake, run as one command,
# builds it as a project of its own (this one, with the same cache and
# counters added), runs the training and writes profile.rsp, the options the
# module's compile reads: the profile's where all went well, none otherwise.
set(profile_rsp ${CMAKE_CURRENT_BINARY_DIR}/profile.rsp)

# Every setting of this build reaches the trainee's, counters added: the
# user's flags are honoured by both, and a trainee compiled otherwise would
# leave counts that do not fit the module.
set(trainee_cache ${CMAKE_CURRENT_BINARY_DIR}/trainee-cache.cmake)
set(counters -fprofile-generate=${CMAKE_CURRENT_BINARY_DIR}/profile)
file(WRITE ${trainee_cache} "")
get_cmake_property(cached CACHE_VARIABLES)
foreach(name IN LISTS cached)
  get_property(type CACHE ${name} PROPERTY TYPE)
  if(type MATCHES "^(INTERNAL|STATIC)$" OR name STREQUAL "NEXT_STEPS_PROFILE")
    continue()
  endif()
  set(value "${${name}}")
  if(name MATCHES "^CMAKE_(CXX_FLAGS|MODULE_LINKER_FLAGS)$")
    string(APPEND value " ${counters}")
  endif()
  file(APPEND ${trainee_cache} "set(${name} [==[${value}]==] CACHE ${type} \"\")\n")
endforeach()

file(GLOB_RECURSE trained_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/src/*
     ${CMAKE_CURRENT_SOURCE_DIR}/standins/velquorn/*.py)
add_custom_command(
  OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/profile.stamp
  BYPRODUCTS ${profile_rsp}
  COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${CMAKE_CURRENT_SOURCE_DIR} -DBINARY_DIR=${CMAKE_CURRENT_BINARY_DIR}
          -DGENERATOR=${CMAKE_GENERATOR} -DPYTHON=${Python_EXECUTABLE} -DREQUIRED=${NEXT_STEPS_WERROR}
          -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/train.cmake
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_CURRENT_BINARY_DIR}/profile.stamp
  DEPENDS ${trained_sources} ${trainee_cache} ${CMAKE_CURRENT_SOURCE_DIR}/cmake/train.cmake
          ${CMAKE_CURRENT_SOURCE_DIR}/bench/train.py ${CMAKE_CURRENT_SOURCE_DIR}/bench/corpus.py
  COMMENT "Profiling the module on the bench's answers"
  VERBATIM)
add_custom_target(next_steps_profile DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/profile.stamp)
add_dependencies(next_steps next_steps_profile)
# The module is compiled again when the options change, not when only the
# counts do (after a change of the training alone): a fresh build folder
# makes both.
target_compile_options(next_steps PRIVATE @${profile_rsp})
set_property(SOURCE ${HOST_SOURCES} APPEND PROPERTY OBJECT_DEPENDS ${profile_rsp})
