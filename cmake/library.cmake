# libthermal.so. It calls the platform but does not link it: those symbols stay undefined until a process loads the
# library, and a program that links `thermal` gets the platform of its choice along with it.
include(CheckIPOSupported)
include(GNUInstallDirs)

set(library_folders foundation store orchestration algorithm sensor_map device)
thermal_find_sources(sources *.cpp ${library_folders})
if(NOT sources)
    return()
endif()

add_library(thermal SHARED ${sources})
target_include_directories(thermal INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/thermal>)
target_compile_features(thermal INTERFACE cxx_std_20)
target_link_libraries(thermal PRIVATE thermal_options INTERFACE ${THERMAL_PLATFORM})
set_target_properties(thermal PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    check_ipo_supported(RESULT link_time_optimization OUTPUT ignored LANGUAGES CXX)
    set_target_properties(thermal PROPERTIES
        INTERPROCEDURAL_OPTIMIZATION_RELEASE ${link_time_optimization}
        INTERPROCEDURAL_OPTIMIZATION_RELWITHDEBINFO ${link_time_optimization})
endif()

install(TARGETS thermal LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY platform ${library_folders} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/thermal
    FILES_MATCHING PATTERN "*.hpp" PATTERN "platform/host" EXCLUDE)
