// Exists for its precompiled headers.
int main()
{
}
