#include "command.h"

int main(int argc, char** argv) {
    return wq::command::run(argc, argv);
}
