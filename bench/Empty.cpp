// The least that a program can do: what a start costs without any work.
int wmain()
{
    return 0;
}
