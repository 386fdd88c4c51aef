// A module that can be loaded, asked and unloaded.

extern "C" int module_answer()
{
    return 42;
}
