#include "app/startup.h"

int main(int argc, char* argv[]) {
    receiver_run(argc, argv);
}
