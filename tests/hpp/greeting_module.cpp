// A module with a function and an object to be looked up.

extern "C" [[gnu::visibility("default")]] int twice(int number)
{
    return 2 * number;
}

extern "C" {
[[gnu::visibility("default")]] extern const char greeting[6];
const char greeting[6] = "hello";
}
