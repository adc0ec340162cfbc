#include "App/HalvaneMain.h"

int main(int argc, char** argv) { return halvane::HalvaneMain::run(argc, argv); }
