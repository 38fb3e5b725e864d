// The release block that every program of the system prints for -v and -V: product, version, build
// and copyright. The release data are set by the build and can be overwritten by a program.
#pragma once

#include <cstdio>
#include <string>

extern char buildTag[100];     // "[V1-0-0-0 2024-01-31 12:00:00 builder]", the time in UTC
extern char buildTarget[100];  // "Linux_6.1_x86_64"
extern int buildVersion[4];    // major, minor, third, fourth

int programVNum1();
int programVNum2();
int programVNum3();
int programVNum4();

// Gives a program its number (0 to 41) and description, which is constant text and not owned. To be
// called where the program starts; 16, the device initialiser, and 38, the resource manager, have
// theirs. Any other number is ignored.
void describeProgram(int program, const char* description);

// A number without a description prints a title that ends behind the version.
void printVersionInfo(std::FILE* stream, int program);
// The release block, then a line each for the link time and the link command that are not null.
void printLinkInfo(std::FILE* stream, int program, const char* linkTime, const char* linkCommand);

// The same pieces as texts.
std::string getPrognameInfo(int program);   // the description
std::string getProgVersInfo(int program);   // the title: product, version, description
std::string getVersionInfo();               // version, build tag and target, at most 99 characters
std::string getReleaseInfo(int program);    // the block, up to its last empty line
std::string getCopyrightInfo(int program);  // short for programs 12 and 13
std::string programName();                  // the product title
std::string programVersion();               // "1.0.0.0"
