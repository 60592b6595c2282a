# The host platform, the simulated server and the command-line program.
if(EXISTS ${PROJECT_SOURCE_DIR}/platform/host/CMakeLists.txt)
    add_subdirectory(platform/host)
endif()

thermal_find_sources(sources *.cpp sim)
if(sources AND TARGET thermal)
    # The rules and the load profile of the simulated server travel inside the program.
    set(rules ${PROJECT_SOURCE_DIR}/examples/rules/simulated_server.ini)
    set(profile ${PROJECT_SOURCE_DIR}/examples/profiles/half_an_hour.csv)
    file(READ ${rules} THERMAL_RULES HEX)
    file(READ ${profile} THERMAL_PROFILE HEX)
    foreach(file THERMAL_RULES THERMAL_PROFILE)
        string(REGEX REPLACE "(..)" "'\\\\x\\1'," ${file} "${${file}}")
    endforeach()
    set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${rules} ${profile})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/bundled_files.cpp.in ${PROJECT_BINARY_DIR}/bundled_files.cpp @ONLY)

    add_library(thermal_sim STATIC ${sources} ${PROJECT_BINARY_DIR}/bundled_files.cpp)
    target_link_libraries(thermal_sim PRIVATE thermal_options PUBLIC thermal)
endif()

thermal_find_sources(sources *.cpp tools)
if(sources AND TARGET thermal_sim)
    find_package(CLI11 REQUIRED)
    add_executable(thermal-sim ${sources})
    target_link_libraries(thermal-sim PRIVATE thermal_options thermal_sim CLI11::CLI11)
endif()
