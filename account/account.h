#pragma once
// placeholder: implementation in progress
