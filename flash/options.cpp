#include "flash/options.h"

namespace flash {

void describe(CLI::App &app, Options &options) {
    app.description("Programs the boards behind the microcontroller of an endpoint");
    app.add_option("file", options.file, "File of Motorola S-records, *.mot")
        ->required()
        ->type_name("FILE.mot");
    app.add_option(
           "--config", options.folder,
           "Folder with the quillon.ini that names the serial port; without it this folder, "
           "or else " +
               std::string(kUsualFolder))
        ->type_name("DIR");
    app.add_flag("--yes", options.yes, "Program without asking");
}

}  // namespace flash
