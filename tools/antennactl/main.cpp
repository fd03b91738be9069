// antennactl: the command-line companion of the service.
int main() { return 2; }
