# What every target of ours compiles with. The readings are single precision and compared exactly by tests, so no
# compiler may fuse a multiplication with an addition.
add_library(thermal_options INTERFACE)
target_include_directories(thermal_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(thermal_options INTERFACE
    -ffp-contract=off -fno-semantic-interposition
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wdouble-promotion -Wformat=2)

if(THERMAL_SANITIZE)
    set(sanitizers -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all)
    target_compile_options(thermal_options INTERFACE ${sanitizers} -fno-omit-frame-pointer)
    target_compile_definitions(thermal_options INTERFACE THERMAL_SANITIZE _GLIBCXX_ASSERTIONS)
    target_link_options(thermal_options INTERFACE ${sanitizers})
endif()

# Sources below the named folders, in `result`; `pattern` is a file name with wildcards.
function(thermal_find_sources result pattern)
    list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/)
    list(TRANSFORM ARGN APPEND /${pattern})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${ARGN})
    set(${result} ${sources} PARENT_SCOPE)
endfunction()
