// placeholder: implementation in progress
