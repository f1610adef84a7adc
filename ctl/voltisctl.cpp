#include "ctl/Commands.h"

int main(int argc, char** argv) {
    return RunVoltisctl(argc, argv);
}
