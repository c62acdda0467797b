void* pixkit_img_filter_get_function_address(void);
void* pixkit_img_filter_get_function_address(void) { return 0; }
