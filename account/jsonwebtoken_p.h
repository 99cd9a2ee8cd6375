#pragma once
// placeholder
