#pragma once

// What a line grammar made of one line: a sample, a summary of samples the recorder did not
// print one by one (linuxptp's "rms ... max ..." lines), or anything else (headers, state
// changes, warnings), which is counted and otherwise passed over.
enum class VDCLineKind { sample, summary, other };
