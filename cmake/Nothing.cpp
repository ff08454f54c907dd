// The precompiled headers need a file that is compiled with them.
