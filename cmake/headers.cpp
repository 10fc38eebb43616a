// A target of precompiled headers needs a source, and a program of them needs an entry.
int main()
{
}
