#include "CommandLine.h"

int main(int count, char** words) { return ostrel::standin::runCommandLine({words + 1, words + count}); }
