# Dates and time.
qv_add_test(dates_test
    time/dates_fixture.cpp
    time/dates_clock_test.cpp
    time/dates_day_count_test.cpp
    time/dates_epoch_test.cpp
    time/dates_ordinal_test.cpp
    time/dates_texts_test.cpp
    time/dates_threads_test.cpp)
