#pragma once

#include <string>
#include <vector>

namespace vxdicom_cli {

/// Expands the command line's FILE|DIR arguments into file names: a file
/// stands for itself; a folder for every regular file below it, walked
/// recursively in name order, except that a folder holding a DICOMDIR stands
/// for that DICOMDIR alone and that Philips' DIRFILE is left out (the walk
/// reaches what it lists). A DICOMDIR (found in a folder or named) goes to
/// the end of the list, where the reader resolves its references against its
/// own folder; with several, only the last is kept, and the folders of the
/// others are walked file by file instead (with a note on stderr). A name
/// that does not exist is passed on (the reader reports it). False, with a
/// message, when a folder cannot be read.
bool expandInputs(const std::vector<std::string> &inputs, std::vector<std::string> &names);

} // namespace vxdicom_cli
