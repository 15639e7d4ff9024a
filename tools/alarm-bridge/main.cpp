#include "BridgeProgram.h"

int main(int argc, char** argv) { return bridge::RunBridge(argc, argv); }
