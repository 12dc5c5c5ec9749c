// Fentra's process entry: the command line is not used.
#include "fentra/app.h"

int main()
{
    fentra_main();
    return 0;
}
