// Rights beyond those of the user (capabilities), such as installations of earlier versions gave to the executable.
#pragma once

// Gives them up and answers whether there were any; root keeps its own. Plug-ins run inside this process, and whoever
// starts it chooses them: called before anything is loaded, and before any other thread exists.
bool GiveUpRights();
