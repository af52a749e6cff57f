#include <btrace.h>
