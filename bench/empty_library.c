/* Needs the C and math libraries, and has nothing in it but one function. */
#include <math.h>

double call_math(double base, double exponent);
double call_math(double base, double exponent)
{
    return pow(base, exponent);
}
