// A module that can be loaded, asked and unloaded.

extern "C" [[gnu::visibility("default")]] int module_answer()
{
    return 42;
}
