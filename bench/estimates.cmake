# Estimates from the peaks of simulated studies: how right they are (script/calibrate), and how quick.
add_library(kvo_simulated_studies STATIC EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/simulated_studies.cpp)
target_link_libraries(kvo_simulated_studies PUBLIC kvo_engine_model OpenMP::OpenMP_CXX)
target_compile_options(kvo_simulated_studies PRIVATE -O3)
add_executable(estimate_calibration EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/estimate_calibration.cpp)
target_link_libraries(estimate_calibration PRIVATE kvo_simulated_studies)
add_executable(estimates_bench EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/estimates_bench.cpp)
target_link_libraries(estimates_bench PRIVATE kvo_simulated_studies)
# p values of the terms of linear models, for script/calibrate.
add_executable(p_calibration EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/p_calibration.cpp)
target_link_libraries(p_calibration PRIVATE kvo_simulated_studies kvo_engine_inference)
