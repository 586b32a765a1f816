// The program `review` beside an upgrade with a fault: what the upgrade writes goes through the `sed` script DAMAGE.
#include <cstdio>
#include <fstream>
#include <string>

extern "C" int __real__Z7upgradeiPPc(int argc, char **argv);
extern "C" int __wrap__Z7upgradeiPPc(int argc, char **argv);

extern "C" int __wrap__Z7upgradeiPPc(int argc, char **argv) {
    int status = __real__Z7upgradeiPPc(argc, argv);
    std::string output = argv[argc - 1], text;
    std::ofstream("whole.conf", std::ios::binary) << std::ifstream(output, std::ios::binary).rdbuf();
    FILE *damaged = popen("sed \"$DAMAGE\" whole.conf", "r");
    for (int byte = getc(damaged); byte != EOF; byte = getc(damaged))
        text += static_cast<char>(byte);
    pclose(damaged);
    remove("whole.conf");
    std::ofstream(output, std::ios::binary) << text;
    return status;
}
