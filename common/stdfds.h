// The standard streams of a program that was started with some of them closed.
#pragma once

// Makes sure that descriptors 0 to 2 are taken, so that no file opened later becomes standard
// output by its number and is written over with reports. To be called first of all; a stream that
// was closed keeps failing when it is used.
void openStandardStreams();
