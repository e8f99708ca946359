# The table editor: its start, and its work on a large table.
add_executable(editor_bench EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/editor_bench.cpp)
target_link_libraries(editor_bench PRIVATE kvo_edit_window kvo_test_folder X11)
target_compile_definitions(editor_bench PRIVATE KVO_EDIT="$<TARGET_FILE:kvo_edit>")
add_dependencies(editor_bench kvo_edit)
