// Process entry point: the command line chooses install, remove, console or service.
int main() { return 1; }
