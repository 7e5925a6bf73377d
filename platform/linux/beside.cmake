# Included by the top-level CMakeLists.txt when the host backend is selected: the Linux backend
# (ardo_platform_linux), the agent on it (tola_agent_linux) and its tests are built in the same
# tree, so one configure builds and tests both backends. The agent's sources are compiled a
# second time against the Linux platform (tola_core_linux), as a device build would.
set(ARDO_LINUX_TARGET ardo_platform_linux)
add_subdirectory(${CMAKE_SOURCE_DIR}/platform/linux ${CMAKE_BINARY_DIR}/platform_linux)

add_library(tola_core_linux STATIC ${TOLA_SRC})
target_include_directories(tola_core_linux PUBLIC ${CMAKE_SOURCE_DIR}/agents/tola)
target_compile_options(tola_core_linux PRIVATE ${TOLA_WARNINGS})
target_link_libraries(tola_core_linux PUBLIC ardo_platform_linux OpenSSL::Crypto PkgConfig::YAJL)

add_executable(tola_agent_linux ${CMAKE_SOURCE_DIR}/agents/tola/main.cpp)
target_compile_options(tola_agent_linux PRIVATE ${TOLA_WARNINGS})
target_link_libraries(tola_agent_linux PRIVATE tola_core_linux)
