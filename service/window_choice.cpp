// The choice of the PDAF window to focus on among the windows of a readout that qualified:
// the one whose PD is closest to their average PD, or the smaller PD of one or two.
#include <cstdio>
#include <utility>

#include "zoomaf/pdaf_focus.h"

namespace {

// Ascending by PD: every later entry with a smaller PD than entry i is exchanged with it
// (on_exchange sees the two PDs first), carrying the companion arrays along.
template <typename T, typename OnExchange, typename... Companions>
void sort_by_pd(T* pd, int32_t n, OnExchange on_exchange, Companions*... companions) {
    for (int32_t i = 0; i + 1 < n; ++i) {
        for (int32_t j = i; j < n; ++j) {
            if (pd[j] < pd[i]) {
                on_exchange(pd[j], pd[i]);
                std::swap(pd[i], pd[j]);
                (std::swap(companions[i], companions[j]), ...);
            }
        }
    }
}

// |v| without overflow, also for the most negative value a caller could pass.
uint64_t magnitude(int64_t v) {
    return v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
}

struct ChoiceTexts {
    const char* single;  // only one entry qualified
    const char* sorted;  // heading of the sorted list
};

// The entry closest to the average PD. The distance is taken in 32 bits; on an equal
// distance a later entry wins only with a strictly smaller |PD|, so PDs -10 and 10 keep -10.
int32_t choose_closest_to_average(int64_t* pd, int64_t* cl, int32_t* win, int32_t n,
                                  int64_t* cl_out, int64_t* pd_out, const ChoiceTexts& texts) {
    if (pd == nullptr || cl == nullptr || win == nullptr || cl_out == nullptr ||
        pd_out == nullptr || n < 1) {
        std::printf("window choice: %d entries or no arrays given, nothing chosen\r\n", n);
        return -1;
    }
    int32_t chosen = 0;
    if (n == 1) {
        std::puts(texts.single);
    } else {
        for (int32_t i = 0; i < n; ++i) {
            std::printf("before change pd[%d]:%ld,cl[%d]:%ld,windowindex:%d\r\n", i, pd[i], i,
                        cl[i], win[i]);
        }
        sort_by_pd(
            pd, n, [](int64_t, int64_t) {}, cl, win);
        std::puts(texts.sorted);
        for (int32_t i = 0; i < n; ++i) {
            std::printf("\r\ncl[%d]=%ld,pd[%d]=%ld,windowxindex:%d\r\n", i, cl[i], i, pd[i],
                        win[i]);
        }
        uint64_t sum = 0;  // wraps like the 64-bit sum it is, whatever a caller passes
        for (int32_t i = 0; i < n; ++i) sum += static_cast<uint64_t>(pd[i]);
        const int64_t average = static_cast<int64_t>(sum) / n;
        std::printf("over calculate sumpd:%ld,averagepd:%ld\r\n", static_cast<int64_t>(sum),
                    average);
        auto distance = [&](int32_t i) {
            return magnitude(static_cast<int32_t>(static_cast<uint64_t>(average) -
                                                  static_cast<uint64_t>(pd[i])));
        };
        for (int32_t i = 1; i < n; ++i) {
            const uint64_t d = distance(i);
            const uint64_t best = distance(chosen);
            if (d < best || (d == best && magnitude(pd[i]) < magnitude(pd[chosen]))) chosen = i;
        }
    }
    *cl_out = cl[chosen];
    *pd_out = pd[chosen];
    std::printf("over calculate select most close to windows is:%d\r\n", win[chosen]);
    return win[chosen];
}

}  // namespace

extern "C" {

int32_t pd_select_sort(int32_t* pd, int32_t* cl, int32_t n) {
    if (pd == nullptr || cl == nullptr) {
        std::puts("pd_select_sort: no arrays given\r");
        return -1;
    }
    for (int32_t i = 0; i < n; ++i) {
        std::printf("before change pd[%d]:%d,cl[%d]:%d\r\n", i, pd[i], i, cl[i]);
    }
    sort_by_pd(
        pd, n,
        [](int32_t smaller, int32_t larger) {
            std::printf("chaneg pd :%d->%d\r\n", smaller, larger);
        },
        cl);
    for (int32_t i = 0; i < n; ++i) {
        std::printf("over change pd[%d]:%d,cl[%d]:%d\r\n", i, pd[i], i, cl[i]);
    }
    return n;
}

int32_t pd_select_sort_wit_win(int64_t* pd, int64_t* cl, int32_t* win, int32_t n, int64_t* cl_out,
                               int64_t* pd_out) {
    return choose_closest_to_average(
        pd, cl, win, n, cl_out, pd_out,
        {"只有一个值满足2047，直接选择\r", "\r\nover sort,the windows value:\r"});
}

int32_t pd_select_2X2_sort_wit_win(int64_t* pd, int64_t* cl, int32_t* win, int32_t n,
                                   int64_t* cl_out, int64_t* pd_out) {
    return choose_closest_to_average(
        pd, cl, win, n, cl_out, pd_out,
        {"只有一个值满足大于1000，直接选择\r", "\r\nover sort ,the windows value:\r"});
}

int32_t pd_select_sort_one_or_two_win(int32_t* pd, int32_t* cl, int32_t* win, int32_t n,
                                      int64_t* cl_out, int64_t* pd_out) {
    if (pd == nullptr || cl == nullptr || win == nullptr || cl_out == nullptr ||
        pd_out == nullptr || n < 1 || n > 2) {
        std::printf("pd_select_sort_one_or_two_win: %d entries or no arrays given\r\n", n);
        return -1;
    }
    for (int32_t i = 0; i < n; ++i) {
        std::printf("before change pd[%d]:%d,cl[%d]:%d,windowindex:%d\r\n", i, pd[i], i, cl[i],
                    win[i]);
    }
    int32_t chosen = 0;
    if (n == 1) {
        std::printf("only one win > cl 1000,so select it,win:%d\r\n", win[0]);
    } else {
        chosen = pd[0] >= pd[1] ? 1 : 0;
        std::printf("two win > cl 1000,so select it,win:%d\r\n", win[chosen]);
    }
    *cl_out = cl[chosen];
    *pd_out = pd[chosen];
    return win[chosen];
}

}  // extern "C"
