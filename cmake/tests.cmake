find_package(GTest QUIET)
thermal_find_sources(sources *.cpp tests)
if(sources AND TARGET thermal AND GTest_FOUND)
    include(GoogleTest)
    add_executable(thermal_tests ${sources})
    target_compile_definitions(thermal_tests PRIVATE
        THERMAL_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
        THERMAL_TRACES_DIR="${PROJECT_SOURCE_DIR}/../shared/traces")
    target_link_libraries(thermal_tests PRIVATE thermal_options thermal GTest::gmock GTest::gtest_main)
    foreach(optional thermal_sim thermal_bench_support)
        if(TARGET ${optional})
            target_link_libraries(thermal_tests PRIVATE ${optional})
        endif()
    endforeach()
    gtest_discover_tests(thermal_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endif()

# Sanitizers, another compiler or another level of optimization would each add or drop a symbol of their own.
if(TARGET thermal AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    add_test(NAME porting_contract COMMAND ${PROJECT_SOURCE_DIR}/cmake/porting_contract.sh $<TARGET_FILE:thermal>)
endif()
