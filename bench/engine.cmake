# The random-effects estimate of the engine, to be timed beside the same in NumPy.
add_executable(engine_bench EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/engine_bench.cpp)
target_link_libraries(engine_bench PRIVATE kvo_engine_verbs)
