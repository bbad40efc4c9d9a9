// Nodes for what the standard lays down and a camera's description may leave out.
#pragma once

#include <arv.h>

// Adds those that the description has not; none that it has is replaced, and nothing of it refers to them unless it
// says so by their names. Before the node map is used.
void AddStandardNodes(ArvGc *genicam);

// Whether the description is older than 1.1: a register of four bytes is then read and written as such, whatever its
// bytes are in the camera's memory.
bool IsLegacyDescription(ArvGc *genicam);
