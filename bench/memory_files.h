// Temporary files of a benchmark in memory, as an installed decoder's run directory is, so that a disk that other
// programs use is in no side's figures.
#pragma once

namespace bench {

// From now on temporary folders of this process and its children are in memory, where there is such a folder. A TMPDIR
// of the user stays. Before the first thread.
void keepFilesInMemory();

} // namespace bench
