#include <stdio.h>
#include <string.h>
#include <vex/vex.h>

/* every plain function is callable from C */
int main(void) {
    char text[32];
    const char *size;
    if (_VexLibInit("consumer", VEX_INTERFACE_VERSION) != 1) return 1;
    size = sizetostr(text, sizeof text, 10240);
    puts(size);
    return VexLibDestroy() == 0 && strcmp(size, "10KiB") == 0 ? 0 : 1;
}
