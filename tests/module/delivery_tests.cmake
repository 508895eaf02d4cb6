# Positioning and the fallback file.

# An independent second version of the rules.
add_library(tallow_job_model STATIC model/aftermath.cpp model/careful_host.cpp
                                    model/file_model.cpp model/job_model.cpp
                                    model/log_model.cpp)
target_link_libraries(tallow_job_model PUBLIC tallow_build tallow_test_support)

tallow_add_tests(model_test SOURCES model_test.cpp LIBRARIES tallow_test_support tallow_job_model
                 DEPENDS tallowin tallowinenu TIMEOUT 900 OWN_MAIN)
# The same test with another 50,000 sequences.
tallow_run_tests(model_test_full model_test ENVIRONMENT TALLOW_SEQUENCES=50000 LABELS full
                 TIMEOUT 5400)

function(tallow_add_fallback_tests name)
  tallow_add_tests(${name} SOURCES ${name}.cpp LIBRARIES tallow_test_support tallow_job_model
                   DEPENDS tallowin tallowinenu OWN_MAIN)
endfunction()

tallow_add_fallback_tests(fallback_file_test)
tallow_add_fallback_tests(restart_safety_test)
tallow_add_fallback_tests(broken_stream_test)
tallow_add_fallback_tests(short_memory_test)
tallow_add_fallback_tests(reason_test)
tallow_add_fallback_tests(golden_file_test)
foreach(golden full_blocks sized_blocks)
  configure_file(golden/${golden}.fbf ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/golden/${golden}.fbf
                 COPYONLY)
endforeach()
tallow_add_script_test(golden/golden_files_test.py)

tallow_add_tests(large_file_test SOURCES large_file_test.cpp
                 LIBRARIES tallow_test_support tallow_job_model DEPENDS tallowin tallowinenu
                 LABELS full TIMEOUT 900 OWN_MAIN)
