# bench/*_bench.cpp are benchmarks, bench/board_cycles.cpp is the program whose instructions are counted, and the other
# sources serve both and the tests.
if(NOT TARGET thermal)
    return()
endif()

set(runner ${PROJECT_SOURCE_DIR}/bench/board_cycles.cpp)
thermal_find_sources(benchmarks *_bench.cpp bench)
thermal_find_sources(support *.cpp bench)
list(REMOVE_ITEM support ${runner} ${benchmarks})

if(support)
    add_library(thermal_bench_support STATIC ${support})
    target_compile_definitions(thermal_bench_support PRIVATE THERMAL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    target_link_libraries(thermal_bench_support PRIVATE thermal_options PUBLIC thermal)
endif()

if(EXISTS ${runner})
    # Without the allocation counter, whose own instructions would count.
    set(board board.cpp rules_of_every_type.cpp)
    list(TRANSFORM board PREPEND ${PROJECT_SOURCE_DIR}/bench/)
    add_executable(thermal_board_cycles ${runner} ${board})
    target_compile_definitions(thermal_board_cycles PRIVATE THERMAL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    target_link_libraries(thermal_board_cycles PRIVATE thermal_options thermal_sim)
endif()

find_package(benchmark QUIET)
if(benchmarks AND benchmark_FOUND)
    add_executable(thermal_bench ${benchmarks})
    target_link_libraries(thermal_bench PRIVATE thermal_options thermal_bench_support benchmark::benchmark_main)
endif()
