/// A record that carries a host's key.
#pragma once

#include <insolate/export.h>

class INSOLATE_EXPORT EObject {
public:
    explicit EObject(int key) : m_nKey(key) {}

    int getKey() const { return m_nKey; }

private:
    int m_nKey;
};
