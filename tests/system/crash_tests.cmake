# Jobs whose host is ended without warning.
tallow_add_tests(crash_test SOURCES crash_test.cpp feeding_pipe.cpp
                 LIBRARIES tallow_test_support tallow_job_model
                 DEPENDS tallowin tallowinenu tallow-host TIMEOUT 900 OWN_MAIN)
tallow_add_tests(torn_call_test SOURCES torn_call_test.cpp
                 LIBRARIES tallow_test_support tallow_job_model DEPENDS tallowin tallowinenu
                 ARGUMENTS --gtest_filter=*/0 TIMEOUT 900 OWN_MAIN)

# The same tests with other options, and with ten times as many jobs.
tallow_run_tests(torn_call_test_full torn_call_test ARGUMENTS --gtest_filter=-*/0 LABELS full
                 TIMEOUT 3600)
tallow_run_tests(crash_test_full crash_test ENVIRONMENT TALLOW_JOBS=500 LABELS full
                 TIMEOUT 3600)
