#pragma once

// edidsim decode FILE...: what the EDID decoder reads from each file, for a
// person or (--json) a program. argv[0] is "decode".
namespace edidvm::sim {

int decodeCommand(int argc, char** argv);

} // namespace edidvm::sim
