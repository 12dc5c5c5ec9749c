// Fentra's process entry: the command line's options, else the simulation.
#include "fentra/app.h"
#include "fentra/command_line.h"

int main(int argc, char **argv)
{
    int status = run_command_line(argc, argv, stdout, stderr);
    if (status >= 0) return status;
    fentra_main();
    return 0;
}
