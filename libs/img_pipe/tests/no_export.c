int something_else(void);
int something_else(void) { return 1; }
