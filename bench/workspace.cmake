# The loading of large study tables.
add_executable(workspace_bench EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/workspace_bench.cpp)
target_link_libraries(workspace_bench PRIVATE kvo_tables kvo_test_folder)
