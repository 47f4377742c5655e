// What can be asked for: modes, scenes, commands, messages, formats.
#pragma once

namespace kov::cam {

// Each prints a table to standard output.
void printModes();
void printScenes();
void printCommands();
void printMessages();
void printFormats();

}  // namespace kov::cam
