#include "tools/Frontpanel.h"

int main(int argc, char* argv[])
{
    return tools::runFrontpanel(argc, argv);
}
