// What consumer/consumer.cpp prints.
#pragma once

constexpr char CONSUMER_OUTPUT[] = "libQVutil17.so cbf43926\n";
