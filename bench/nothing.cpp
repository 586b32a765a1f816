// Does nothing: what starting a program linked like the upgrader costs.
int main() { return 0; }
