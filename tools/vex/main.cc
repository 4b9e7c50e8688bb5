#include <vex/vex.h>

int main() { return 0; }
