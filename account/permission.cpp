#include "permission.h"

namespace vn::account {

Permission::Permission(QObject *parent)
    : QObject(parent)
{}

Permission::~Permission() = default;

} // namespace vn::account
