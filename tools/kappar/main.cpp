#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("kappar %s\n", KAPPAR_VERSION_TEXT);
        return 0;
    }
    std::fprintf(stderr, "usage: kappar --version\n");
    return 2;
}
