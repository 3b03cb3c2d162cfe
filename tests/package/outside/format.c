/* A program from outside, in C: formats the card image that it is given and says how many record files it holds. */
#include <libPreStore.h>
#include <stdio.h>

int main(int argc, char** argv) {
    ConfigStoreInfo_S store = {0};
    if (argc != 2 || mkfs_vfat(argv[1], &store, 50) != 0) {
        return 1;
    }
    printf("%u\n", (unsigned)store.vedio_num);
    return 0;
}
