// A file-scope constant named like one of the macOS text style enumerators.
static const int bold = 700;

int weight() { return bold; }
