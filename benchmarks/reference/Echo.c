/* The least that a native-messaging host can do: read a frame, write it back. */

#include <stdint.h>
#include <stdio.h>

int main(void) {
    static char message[1 << 20];
    uint32_t length;
    while (fread(&length, sizeof length, 1, stdin) == 1) {
        if (length > sizeof message || fread(message, 1, length, stdin) != length)
            return 1;
        fwrite(&length, sizeof length, 1, stdout);
        fwrite(message, 1, length, stdout);
        fflush(stdout);
    }
    return 0;
}
