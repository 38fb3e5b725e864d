// The standard streams of a program that must survive whatever they are connected to.
#pragma once

// To be called first of all. Makes sure that descriptors 0 to 2 are taken, so that no file opened
// later becomes standard output by its number and is written over with reports; input and output
// that were closed keep failing when they are used. A reader that goes away, or a limit on the size
// of files, makes the write fail and no longer ends the process.
void openStandardStreams();
