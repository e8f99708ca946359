# The road of an engine's line to the console.
add_executable(shell_bench EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/shell_bench.cpp)
target_link_libraries(shell_bench PRIVATE kvo_shell kvo_test_folder)
add_executable(shell_bench_engine EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/shell_engine.cpp)
target_link_libraries(shell_bench_engine PRIVATE kvo_options)
