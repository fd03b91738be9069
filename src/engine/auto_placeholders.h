#pragma once
// Present only while the auto loop is not part of this branch: tests that need the real
// loop skip themselves when this header exists. Delete it together with
// auto_placeholders.cpp when the loop arrives.
