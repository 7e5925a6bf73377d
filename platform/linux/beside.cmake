# Included by the top-level CMakeLists.txt when the host backend is selected: the Linux backend
# (ardo_platform_linux), the agent on it (tola_agent_linux) and its tests are built in the same
# tree, so one configure builds and tests both backends. The agent's objects are the host build's
# (they see only the platform headers), linked with the Linux platform (tola_core_linux).
set(ARDO_LINUX_TARGET ardo_platform_linux)
add_subdirectory(${CMAKE_SOURCE_DIR}/platform/linux ${CMAKE_BINARY_DIR}/platform_linux)

add_library(tola_core_linux STATIC)
target_link_libraries(tola_core_linux PUBLIC tola_core_objects ardo_platform_linux)

add_executable(tola_agent_linux ${CMAKE_SOURCE_DIR}/agents/tola/main.cpp)
target_compile_options(tola_agent_linux PRIVATE ${TOLA_WARNINGS})
target_link_libraries(tola_agent_linux PRIVATE tola_core_linux)
