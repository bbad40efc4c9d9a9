// Why a file could not be written, in words.
#pragma once

#include <string>

// Results of formats besides 0 and errno values.
enum FormatFailure : int {
    NotHeld = -1,   // the format cannot hold the picture
    TooLarge = -2,  // or a picture of this size
    NoRate = -3,    // or a movie of this frame rate
    NoEncoder = -4, // the encoder refuses such pictures
    LOST = -5,      // the file was deleted while it was written
};

// Short, in English, without a full stop: "No space left on device".
std::string FailureText(int failure);
