# Jobs whose host is ended without warning.
tallow_add_tests(crash_test SOURCES crash_test.cpp feeding_pipe.cpp
                 LIBRARIES tallow_test_support tallow_job_model
                 DEPENDS tallowin tallowinenu tallow-host TIMEOUT 900 OWN_MAIN)
tallow_add_tests(torn_call_test SOURCES torn_call_test.cpp
                 LIBRARIES tallow_test_support tallow_job_model DEPENDS tallowin tallowinenu
                 ARGUMENTS --gtest_filter=*/0 TIMEOUT 900 OWN_MAIN)

# The same tests with other options, and with ten times as many jobs.
add_test(NAME torn_call_test_full COMMAND torn_call_test --gtest_brief=1 --gtest_filter=-*/0
         WORKING_DIRECTORY ${TALLOW_TEST_WORK}/torn_call_test)
set_tests_properties(torn_call_test_full PROPERTIES LABELS full TIMEOUT 3600)
add_test(NAME crash_test_full COMMAND crash_test --gtest_brief=1
         WORKING_DIRECTORY ${TALLOW_TEST_WORK}/crash_test)
set_tests_properties(crash_test_full PROPERTIES LABELS full TIMEOUT 3600
                     ENVIRONMENT TALLOW_JOBS=500)
