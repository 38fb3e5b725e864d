// The standard streams of a program that must survive whatever they are connected to.
#pragma once

// To be called first of all. Makes sure that descriptors 0 to 2 are taken, so that no file opened
// later becomes standard output by its number and is written over with reports; a stream that was
// closed keeps failing when it is used. A reader that goes away, or a limit on the size of files,
// makes the write fail and no longer ends the process.
void openStandardStreams();
