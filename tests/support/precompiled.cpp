// Nothing but the place of the headers that all tests share precompiled.
int main() {
    return 0;
}
