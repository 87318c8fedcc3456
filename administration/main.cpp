#include "entry.h"

int main(int argc, char** argv) { return quillEntry(argc, argv); }
