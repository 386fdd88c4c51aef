# The public headers in every language they promise, and what their attributes make of mistakes.
qv_add_test(headers_test headers/headers_test.cpp)
qv_add_test(attributes_test headers/attributes_test.cpp)
