# Dates and time.
qv_add_test(dates_test time/dates_test.cpp)
