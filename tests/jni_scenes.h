// The scenes of the transcripts (tests/scenes): what the application, the service and the platform do to the library.
#pragma once

#include <string>

namespace scenes {

// Steps, one a line: a native method, a request of the service's or one of the steps of jni_scenes.cpp, with its
// arguments as a JSON array. Throws for a step that there is not.
void play(const std::string& steps);

}  // namespace scenes
