# Finds the NATS C client and defines the target rtm_nats_client for the broker library of the
# formats layer. The Debian package's CMake config names a static library it does not ship, so
# the header and shared library are looked up directly.
if(NOT TARGET rtm_nats_client)
  find_path(RTM_NATS_INCLUDE_DIR nats/nats.h)
  find_library(RTM_NATS_LIBRARY nats)
  if(RTM_NATS_INCLUDE_DIR AND RTM_NATS_LIBRARY)
    add_library(rtm_nats_client INTERFACE IMPORTED GLOBAL)
    set_target_properties(rtm_nats_client PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES ${RTM_NATS_INCLUDE_DIR}
      INTERFACE_LINK_LIBRARIES ${RTM_NATS_LIBRARY})
  endif()
endif()
