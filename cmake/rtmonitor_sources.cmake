# The one list of the library's sources (every .cpp under src/, sorted) and of the synthetic-signal
# generator's (tools/synth). CMakeLists.txt includes this file; the fuzz and soak Makefiles run it
# in script mode and read the list from stdout:
#   cmake -P cmake/rtmonitor_sources.cmake                    the library
#   cmake -DRTM_LIST=synth -P cmake/rtmonitor_sources.cmake   the synthetic-signal generator
get_filename_component(RTM_ROOT "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
if(CMAKE_SCRIPT_MODE_FILE)
  if(RTM_LIST STREQUAL "synth")
    file(GLOB RTM_SOURCES "${RTM_ROOT}/tools/synth/*.cpp")
  else()
    file(GLOB_RECURSE RTM_SOURCES "${RTM_ROOT}/src/*.cpp")
  endif()
  list(SORT RTM_SOURCES)
  string(REPLACE ";" " " RTM_SOURCES_LINE "${RTM_SOURCES}")
  execute_process(COMMAND "${CMAKE_COMMAND}" -E echo "${RTM_SOURCES_LINE}")
else()
  file(GLOB_RECURSE RTM_SOURCES CONFIGURE_DEPENDS "${RTM_ROOT}/src/*.cpp")
  list(SORT RTM_SOURCES)
  file(GLOB RTM_SYNTH_SOURCES CONFIGURE_DEPENDS "${RTM_ROOT}/tools/synth/*.cpp")
  list(SORT RTM_SYNTH_SOURCES)
endif()
