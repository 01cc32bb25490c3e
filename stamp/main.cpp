// The stamp: writes from the catalogue what the language cannot derive by itself: symbol names, the public header and
// the sections of the library file. Two runs give the same bytes.
#include "stamp/exports.hpp"
#include "stamp/file.hpp"
#include "stamp/outputs.hpp"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) try {
    if (argc != 4 || std::string(argv[2]) != "--build-record") {
        std::fprintf(stderr, "usage: stamp FOLDER --build-record FILE\n");
        return 2;
    }
    using namespace epm::stamp;
    check_exports();
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    write_header(folder);
    write_definitions(folder);
    write_version_script(folder);
    write_export_list(folder);
    write_trace_catalogue(folder);
    write_debugger_tables(folder);
    write_data(folder);
    write_schemas(folder / "schemas");
    write_wireshark_tables(folder);
    write_manifest(folder, contents(argv[3]));
    return 0;
} catch (const std::exception& fault) {
    std::fprintf(stderr, "stamp: %s\n", fault.what());
    return 1;
}
