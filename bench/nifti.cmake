# The reading of a long series of images.
add_executable(nifti_bench EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/nifti_bench.cpp)
target_link_libraries(nifti_bench PRIVATE kvo_nifti kvo_test_folder)
