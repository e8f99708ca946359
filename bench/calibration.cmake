# How often the statistics of single values are right, for script/calibrate.
add_executable(small_study_calibration EXCLUDE_FROM_ALL
  ${CMAKE_CURRENT_LIST_DIR}/small_study_calibration.cpp)
target_link_libraries(small_study_calibration PRIVATE kvo_engine_model)
