/* The smallest DLL that carries the resources of sample.rc. */
int SampleFunction(void) { return 42; }
