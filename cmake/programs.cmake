# The host platform, the simulated server and the command-line program.
if(EXISTS ${PROJECT_SOURCE_DIR}/platform/host/CMakeLists.txt)
    add_subdirectory(platform/host)
endif()

thermal_find_sources(sources *.cpp sim)
if(sources AND TARGET thermal)
    add_library(thermal_sim STATIC ${sources})
    target_link_libraries(thermal_sim PRIVATE thermal_options PUBLIC thermal)
endif()

thermal_find_sources(sources *.cpp tools)
if(sources AND TARGET thermal_sim)
    find_package(CLI11 REQUIRED)
    add_executable(thermal-sim ${sources})
    target_link_libraries(thermal-sim PRIVATE thermal_options thermal_sim CLI11::CLI11)
endif()
