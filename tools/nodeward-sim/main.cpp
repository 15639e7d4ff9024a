#include "SimProgram.h"

int main(int argc, char** argv) { return nodeward::RunProgram(argc, argv); }
