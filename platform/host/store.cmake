# The host platform's settings store, for any backend to compile in.
#
# The router's settings families (Wi-Fi, LAN, DNS, firewall, forwarding, filtering, sharing,
# device UI, web UI, known devices) have no standard Linux service behind them yet, so a backend
# may keep them where the host platform keeps them: in the device-state document
# (var/lib/ardo/device.json under sys_fsPath). Include this file from the backend's
# CMakeLists.txt and add the sources of the families you keep to the backend's library:
#
#   include(${ARDO_HOST_DIR}/store.cmake)
#   add_library(ardo_platform STATIC my_modem.cpp ... ${ARDO_HOST_STORE_SOURCES})
#   target_include_directories(ardo_platform PRIVATE ${ARDO_HOST_DIR})
#   target_link_libraries(ardo_platform PUBLIC ${ARDO_HOST_STORE_LIBRARIES})
#
# ARDO_HOST_STORE_SOURCES   the store itself and every settings getter and setter of
#                           sys_settings.h (but modem profiles), deviceui.h and webui.h:
#                           host_env.cpp, device_state.cpp, settings.cpp, known_devices.cpp and
#                           the embedded factory defaults. The backend provides sys_fsPath
#                           (paths.cpp serves a backend whose fixed paths move with ARDO_ROOT).
# ARDO_HOST_MODEM_PROFILE_SOURCES   sys_get/setModemProfile, sys_getActiveModemProfileIndex.
# ARDO_HOST_DATA_USAGE_SOURCES      dua_* (publishes its notice through the backend's bus).
#
# Both optional lists need ARDO_HOST_STORE_SOURCES too. The factory defaults are generated here,
# so the list must be used in the directory that includes this file.
set(ARDO_HOST_DIR ${CMAKE_CURRENT_LIST_DIR})

file(GLOB ARDO_FACTORY_FRAGMENTS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/share/device/factory/*.json)
list(SORT ARDO_FACTORY_FRAGMENTS)
set(ARDO_FACTORY_CPP ${CMAKE_BINARY_DIR}/generated/factory_state.cpp)
add_custom_command(
  OUTPUT ${ARDO_FACTORY_CPP}
  COMMAND ${CMAKE_COMMAND} -DOUT=${ARDO_FACTORY_CPP} "-DIN=${ARDO_FACTORY_FRAGMENTS}"
          -P ${CMAKE_SOURCE_DIR}/cmake/embed_factory.cmake
  DEPENDS ${ARDO_FACTORY_FRAGMENTS} ${CMAKE_SOURCE_DIR}/cmake/embed_factory.cmake
  COMMENT "Embedding the factory device state"
  VERBATIM)

set(ARDO_HOST_STORE_SOURCES
  ${ARDO_HOST_DIR}/host_env.cpp
  ${ARDO_HOST_DIR}/device_state.cpp
  ${ARDO_HOST_DIR}/settings.cpp
  ${ARDO_HOST_DIR}/known_devices.cpp
  ${ARDO_FACTORY_CPP})
set(ARDO_HOST_MODEM_PROFILE_SOURCES ${ARDO_HOST_DIR}/modem.cpp)
set(ARDO_HOST_DATA_USAGE_SOURCES ${ARDO_HOST_DIR}/data_usage.cpp)
set(ARDO_HOST_STORE_LIBRARIES Threads::Threads nlohmann_json::nlohmann_json)
