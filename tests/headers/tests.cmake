# The public headers under every dialect.
qv_add_test(headers_test headers/headers_test.cpp)
