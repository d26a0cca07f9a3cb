#pragma once

// What the shared library exports: the types and functions of the public headers. Everything
// else is compiled hidden, so that the SDK's internals and the libraries it is built on stay
// private to it.
#define ZARVO_EXPORT __attribute__((visibility("default")))
