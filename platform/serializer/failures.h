// Why files do not come into being, in words.
#pragma once

#include <string>

// What formats give besides 0 and errno values.
enum FormatFailure : int {
    NotHeld = -1,   // the format cannot hold the picture
    TooLarge = -2,  // nor one of such a size
    NoRate = -3,    // nor a movie of that frame rate
    NoEncoder = -4, // the encoder refuses such pictures
    LOST = -5,      // the file was deleted while it was written
};

// Short, in English, without a full stop: "No space left on device".
std::string FailureText(int failure);
