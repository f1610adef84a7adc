#include "Globals.h"

DriverState State = STATE_READY;
bool noErrors = true;
bool cmdError = false;
bool receiptNotFinished = false;
bool serverMode = false;
bool exitServerMode = false;
