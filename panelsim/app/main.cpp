#include "panelsim/app/Panelsim.h"

int main(int argc, char** argv)
{
    return panelsim::runPanelsim(argc, argv);
}
